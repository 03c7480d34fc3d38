#include "app/status_item_model.h"

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell {

StatusItemModel makeStatusItemModel(const AwakeController& c) {
    StatusItemModel m;
    const std::string name(AppConfig::name);
    if (!c.isActive()) {
        m.symbol = "moon.stars";
    } else if (c.activeMode() == KeepMode::auto_) {
        m.symbol = "sparkles";
    } else {
        m.symbol = "bolt.fill";
    }
    if (auto title = c.menuBarTitle()) m.title = " " + *title;
    m.tooltip = name + ": " +
                (c.isActive() ? T("뚜껑을 닫아도 계속 실행 중", "Running with the lid closed") : T("대기 중", "Idle"));
    m.accessibilityDescription = name;
    return m;
}

}  // namespace duskwell
