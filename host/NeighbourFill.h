#pragma once

#include <cstdint>
#include <vector>

#include "host/LocalNetworks.h"
#include "host/Shell.h"

namespace host {

// Makes the kernel resolve every address of the local LANs, so that the neighbour table lists
// every host that answers address resolution, also one that drops all echo requests. The blocks
// run one after the other as children of this object, inside the pump: the link is served
// meanwhile. Must be owned by a Ref.
class NeighbourFill : public Shell {
public:
    NeighbourFill();

    // A fill still under way is ended first: its blocks are the same, and a hung tool must not
    // live on.
    void start(std::vector<LocalNetworks::Range> ranges);

protected:
    void Event_Completed() override;

private:
    void startNext();

    std::vector<LocalNetworks::Range> ranges_;
    std::size_t next_ = 0;
    std::int64_t intervalMs_ = 1;
    // A child runs, or its end has yet to be delivered.
    bool busy_ = false;
};

}  // namespace host
