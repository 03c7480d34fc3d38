#pragma once
// The controller under test in a fresh test environment, for the controller's scenario tests.
#include <gtest/gtest.h>

#include <memory>

#include "core/awake_controller.h"
#include "testing/fakes.h"

namespace duskwell::testing {

// A controller on a machine without the power helper.
class ControllerTest : public ::testing::Test {
protected:
    TestEnvironment env;
    AwakeController c;
};

// A controller that finds the power helper installed, so that periods can start.
class ControllerWithHelper : public ::testing::Test {
protected:
    TestEnvironment env;
    std::unique_ptr<AwakeController> made = [this] {
        env.installHelper();
        return std::make_unique<AwakeController>();
    }();
    AwakeController& c = *made;
};

}  // namespace duskwell::testing
