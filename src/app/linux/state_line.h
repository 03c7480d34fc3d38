#pragma once
#include <string>

namespace duskwell {

class AwakeController;

// One line for the terminal: mode, whether a period runs, battery, lid and heat, and what
// the period set up that no longer holds.
std::string stateLine(const AwakeController& controller);

}  // namespace duskwell
