#include "core/hold_check.h"

#include "core/localization.h"

namespace duskwell {
namespace {

using State = HoldVerdict::State;

struct HoldTexts {
    std::string_view code;
    std::string_view shortKo, shortEn;
    std::string_view sentenceKo, sentenceEn;
};

// The texts of each reason, Korean first; indexed by HoldItem. None names the machine.
constexpr HoldTexts kTexts[] = {
    {"inhibitor", "잠자기 방지 풀림", "sleep block gone",
     "시스템이 Duskwell의 잠자기 방지를 유지하지 않고 있어서, 가만히 두면 잠들 수 있어요.",
     "The system isn't holding Duskwell's sleep block, so it may sleep when left idle."},
    {"lid", "뚜껑 닫으면 잠듦", "lid sleep is on",
     "뚜껑을 닫으면 잠드는 설정이 다시 켜져 있어서, 지금 뚜껑을 닫으면 잠들 수 있어요.",
     "Sleep on lid close is switched on again, so closing the lid may put it to sleep."},
    {"profile", "성능 모드 바뀜", "performance mode changed",
     "전원 모드가 Duskwell이 설정한 고성능 모드에서 바뀌었어요.",
     "The power mode is no longer the high-performance one Duskwell set."},
};

const HoldTexts& texts(HoldItem item) { return kTexts[static_cast<int>(item)]; }

// Folds one item's finding into the verdict.
void note(HoldVerdict& v, bool& confirmed, HoldItem item, std::optional<bool> holds) {
    if (!holds) return;
    if (*holds) confirmed = true;
    else v.failing.push_back(item);
}

std::optional<bool> sameAs(std::optional<int> wanted, std::optional<int> seen) {
    if (!wanted || !seen) return std::nullopt;
    return *wanted == *seen;
}

}  // namespace

HoldVerdict HoldCheck::judge(const HoldExpectation& expected, const HoldObservation& seen) {
    HoldVerdict v;
    bool confirmed = false;
    if (expected.inhibitor)
        note(v, confirmed, HoldItem::inhibitor, expected.inhibitorGranted ? seen.inhibitorListed : false);
    if (expected.lid) note(v, confirmed, HoldItem::lid, seen.lidSleepDisabled);
    const auto power = sameAs(expected.powerMode, seen.powerMode);
    const auto low = sameAs(expected.lowPowerMode, seen.lowPowerMode);
    if (power == false || low == false) note(v, confirmed, HoldItem::profile, false);
    else if (power || low) note(v, confirmed, HoldItem::profile, true);

    if (!v.failing.empty()) v.state = State::broken;
    else if (confirmed) v.state = State::holds;
    return v;
}

HoldQuery HoldCheck::query(const HoldExpectation& expected, int pid) {
    HoldQuery q;
    q.pid = pid;
    // A refused inhibitor is already known to fail: nothing to ask.
    q.inhibitor = expected.inhibitor && expected.inhibitorGranted;
    q.lid = expected.lid;
    q.profile = expected.powerMode.has_value() || expected.lowPowerMode.has_value();
    return q;
}

std::string_view HoldCheck::code(HoldItem item) { return texts(item).code; }
std::string HoldCheck::shortText(HoldItem item) { return T(texts(item).shortKo, texts(item).shortEn); }
std::string HoldCheck::sentence(HoldItem item) { return T(texts(item).sentenceKo, texts(item).sentenceEn); }
std::string HoldCheck::headline() { return T("깨어 있기 설정이 풀렸어요", "Keep-awake isn't holding"); }

std::string HoldCheck::statusLead(const std::vector<HoldItem>& failing) {
    std::string line = T("유지 안 됨: ", "Not holding: ");
    for (std::size_t i = 0; i < failing.size(); ++i) line += (i ? ", " : "") + shortText(failing[i]);
    return line;
}

std::string HoldCheck::alertBody(const std::vector<HoldItem>& failing) {
    std::string body;
    for (std::size_t i = 0; i < failing.size(); ++i) body += (i ? " " : "") + sentence(failing[i]);
    return body;
}

bool HoldEpisode::record(const HoldVerdict& verdict) {
    if (verdict.state == State::holds) alerted_ = false;
    if (verdict.state != State::broken || alerted_) return false;
    alerted_ = true;
    return true;
}

}  // namespace duskwell
