// Temporary definitions that let the controller link while its neighbours are built.
// Each block is removed by the change that implements it; none survives into a release.
#include "agents/agent_monitor.h"
#include "core/awake_controller.h"
#include "core/dispatcher.h"
#include "phone/http_client.h"
#include "phone/phone_notifier.h"
#include "power/power_helper.h"

namespace duskwell {

// ---- phone ----
PhoneNotifier::PhoneNotifier() = default;
PhoneNotifier::~PhoneNotifier() = default;
std::unique_ptr<HttpClient> makePlatformHttpClient() { return nullptr; }
// ---- end phone ----

// ---- awaited by the session (each line goes when its owner lands) ----
void PhoneNotifier::setEnabled(bool) {}
void PhoneNotifier::send(const std::string&, const std::string&, const std::vector<std::string>&, int, bool, bool) {}
void PhoneNotifier::poll(std::function<void(Command)>) {}
void AwakeController::writeStatusFile() {}
std::string AwakeController::statusLine() const { return {}; }
// ---- end awaited by the session ----

// ---- command surfaces ----
void AwakeController::refreshCLI() {}
// ---- end command surfaces ----

}  // namespace duskwell
