#include "ReceivedMessages.h"

#include "MultiPacketReader.h"

namespace testsupport {

std::vector<std::string> ReceivedMessages::take(std::size_t count,
                                                std::chrono::milliseconds limit) {
    std::vector<std::string> taken;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    do {
        auto view = readControllerStream(pending_ + server_.receive(std::chrono::milliseconds(10)));
        greeting_ += view.greeting;
        pending_ = view.rest;
        taken.insert(taken.end(), view.inOrder.begin(), view.inOrder.end());
    } while (taken.size() < count && std::chrono::steady_clock::now() < deadline);
    return taken;
}

}  // namespace testsupport
