#include "app/linux/control_server.h"

#include <ostream>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/dispatcher.h"
#include "core/services.h"

namespace duskwell {

std::unique_ptr<ControlServer> startControlServer(AwakeController& controller, std::string* error,
                                                  ControlPreHandler before) {
    Dispatcher* main = services().dispatcher;
    return ControlServer::start(
        AppConfig::controlSocket(), [main](std::function<void()> task) { main->post(std::move(task)); },
        [&controller, before](const std::string& request) {
            if (before)
                if (auto reply = before(request)) return *reply;
            return ControlProtocol::answer(controller, request);
        },
        error);
}

int openURLCommand(const std::string& url, std::ostream& err) {
    std::string reason;
    const int status = forwardURLExitStatus(forwardURL(url), reason);
    if (status != 0) err << "duskwelld: " << reason << "\n";
    return status;
}

}  // namespace duskwell
