#include "app/quick_menu_model.h"

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell {
namespace {

QuickMenuItem item(std::string title, std::optional<Action> action, std::string key = {}) {
    QuickMenuItem i;
    i.title = std::move(title);
    i.action = std::move(action);
    i.keyEquivalent = std::move(key);
    return i;
}

QuickMenuItem separator() {
    QuickMenuItem i;
    i.kind = QuickMenuItem::Kind::separator;
    return i;
}

}  // namespace

std::string quickMenuInfoLine(const AwakeController& c) {
    if (c.activeMode() == KeepMode::auto_) {
        if (auto idle = c.idleRemaining()) {
            const std::string clock = AwakeController::longClock(*idle);
            return T(clock + " 후 잠자기", "Sleeping in " + clock);
        }
        const std::string n = std::to_string(c.agents().workingCount());
        return T("AI 작업 " + n + "개 진행 중", n + " AI tasks running");
    }
    if (auto left = c.remaining()) {
        const std::string clock = AwakeController::longClock(*left);
        return T("남은 시간 " + clock, clock + " left");
    }
    return T("무제한 실행 중", "Running without limit");
}

std::vector<QuickMenuItem> makeQuickMenu(const AwakeController& c) {
    std::vector<QuickMenuItem> menu;
    if (c.isActive()) {
        menu.push_back(item(quickMenuInfoLine(c), std::nullopt));
        menu.push_back(item(T("중단하기", "Stop"), Action::make(Action::Kind::stop)));
        // Extending only makes sense for a period with an end; an auto period's end is its
        // cap, which the quick menu leaves alone.
        if (c.endDate() && c.activeMode() != KeepMode::auto_) {
            menu.push_back(item(T("30분 연장", "Extend 30 min"), Action::extendBy(30)));
            menu.push_back(item(T("1시간 연장", "Extend 1 hour"), Action::extendBy(60)));
        }
    } else {
        menu.push_back(item(T("AI 작업 끝날 때까지", "Until AI tasks finish"), Action::make(Action::Kind::startAuto)));
        menu.push_back(separator());
        for (int minutes : AwakeController::presets()) {
            menu.push_back(item(AwakeController::label(minutes), Action::preset(minutes)));
        }
    }
    const std::string name(AppConfig::name);
    menu.push_back(separator());
    menu.push_back(item(T("화면 끄기", "Turn off screen"), Action::make(Action::Kind::turnOffDisplay)));
    menu.push_back(item(T("열기…", "Open…"), Action::make(Action::Kind::openPopover)));
    menu.push_back(separator());
    menu.push_back(item(T(name + " 종료", "Quit " + name), Action::make(Action::Kind::quit), "q"));
    return menu;
}

}  // namespace duskwell
