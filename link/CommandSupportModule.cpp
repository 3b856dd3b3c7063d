#include "link/CommandSupportModule.h"

#include "wire/cAmbrelisCommand.h"

namespace CommandSupportModule {

// Stand-in until the dispatcher lands: every message is dropped without a word.
void HandleIncomingCommand(const host::Ref<cAmbrelisCommand>&) {}

}  // namespace CommandSupportModule
