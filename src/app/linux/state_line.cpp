#include "state_line.h"

#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell {
namespace {

std::string batteryText(const BatteryInfo& b) {
    if (!b.hasBattery) return T("배터리 없음", "no battery");
    std::string s = T("배터리 ", "battery ") + (b.percent ? std::to_string(*b.percent) + "%" : "?");
    if (b.charging) s += T(", 충전 중", ", charging");
    else if (b.onBattery) s += T(", 배터리 사용 중", ", on battery");
    else s += T(", 전원 연결됨", ", on power");
    if (b.minutesLeft) s += T(", 남은 시간 ", ", ") + std::to_string(*b.minutesLeft / 60) + ":" +
                            (*b.minutesLeft % 60 < 10 ? "0" : "") + std::to_string(*b.minutesLeft % 60) +
                            T("", " left");
    return s;
}

std::string lidText(std::optional<bool> closed) {
    if (!closed) return T("덮개 없음", "no lid");
    return *closed ? T("덮개 닫힘", "lid closed") : T("덮개 열림", "lid open");
}

std::string thermalText(int state) {
    switch (state) {
        case 0: return T("발열 정상", "heat nominal");
        case 1: return T("발열 약간", "heat fair");
        case 2: return T("발열 높음", "heat serious");
        default: return T("발열 위험", "heat critical");
    }
}

}  // namespace

std::string stateLine(const AwakeController& c) {
    const KeepMode shown = c.isActive() ? c.activeMode() : c.mode();
    std::string line = T("모드 ", "mode ") + std::string(shown.name());
    line += c.isActive() ? T(" · 깨어 있음", " · keeping awake") : T(" · 쉬는 중", " · idle");
    line += " · " + batteryText(c.battery());
    line += " · " + lidText(c.lidClosed());
    line += " · " + thermalText(c.thermal());
    // The journal's record of the self-check: a line when it breaks, another when it holds again.
    if (c.held().state == HoldVerdict::State::broken) line += " · " + HoldCheck::statusLead(c.held().failing);
    return line;
}

}  // namespace duskwell
