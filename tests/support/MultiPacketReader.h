#pragma once

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// What the controller side of a test sees: the greeting line and then whole multi-packets,
// decoded independently of the driver's own code so that the two can check each other.
struct ControllerView {
    std::string greeting;
    // The messages with their pairs in wire order, as "key=value key=value".
    std::vector<std::string> inOrder;
    std::string rest;  // bytes that do not form a whole message yet
};

// A multi-packet as the controller writes it, flag 0x80, pairs in the given order.
std::string multiPacket(const std::vector<std::pair<std::string, std::string>>& pairs);

// Splits off a greeting up to its carriage return when the stream starts with "ard:".
ControllerView readControllerStream(const std::string& bytes);

}  // namespace testsupport
