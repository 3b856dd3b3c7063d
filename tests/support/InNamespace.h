#pragma once

#include <string>

// Moves the calling thread into a network namespace for as long as the object lives. Sockets
// made meanwhile belong to that namespace, and children started meanwhile are born in it.
class InNamespace {
public:
    // An empty path leaves the thread where it is.
    explicit InNamespace(const std::string& path);
    ~InNamespace();
    InNamespace(const InNamespace&) = delete;
    InNamespace& operator=(const InNamespace&) = delete;

    bool entered() const { return home_ >= 0; }

private:
    int home_ = -1;
};
