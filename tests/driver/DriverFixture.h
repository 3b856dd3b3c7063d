#pragma once

#include <gtest/gtest.h>

#include "core/App.h"
#include "core/Globals.h"
#include "host/EventPump.h"
#include "host/ExceptionWrapper.h"
#include "link/AmbrelisSupport.h"

// Runs driver code in-process the way the host does: failures that leave a handler go to the
// application's guard. Tear-down drops the link and checks that the pump holds nothing.
class DriverFixture : public ::testing::Test {
protected:
    void SetUp() override {
        host::ExceptionWrapper::setHandler([this](const host::RuntimeException& err) {
            return app.Event_UnhandledException(err);
        });
    }

    void TearDown() override {
        AmbrelisSupport::AmbrelisSocket = nullptr;
        host::EventPump::instance().run(0);
        Globals::DoQuit = false;
        Globals::DebugMode = false;
        host::ExceptionWrapper::setHandler(nullptr);
        EXPECT_EQ(host::EventPump::instance().watchCount(), 0u);
        EXPECT_EQ(host::EventPump::instance().postedCount(), 0u);
    }

    App app;
};
