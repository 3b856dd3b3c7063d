#include <csignal>

#include "core/App.h"

int main(int argc, char** argv) {
    // A controller that closes our standard output or the link must not kill us by signal;
    // the failed write is reported where it matters instead.
    std::signal(SIGPIPE, SIG_IGN);
    App::wireLayers();
    App app;
    return app.Run(argc, argv);
}
