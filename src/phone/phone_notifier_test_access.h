#pragma once
// Tests only: the notifier's private poll state and a shorter request time-out.
#include "phone/phone_notifier.h"

namespace duskwell {

struct PhoneNotifierTestAccess {
    static void setRequestTimeout(PhoneNotifier& p, double seconds) { p.timeout_ = seconds; }
    static const std::vector<std::string>& seenIDs(const PhoneNotifier& p) { return p.seenIDs_; }
    static const std::optional<std::string>& lastID(const PhoneNotifier& p) { return p.lastID_; }
    static bool polling(const PhoneNotifier& p) { return p.polling_; }
    static std::int64_t startedAt(const PhoneNotifier& p) { return p.startedAt_; }
    static std::string random(int length) { return PhoneNotifier::random(length); }
    static std::string server(const PhoneNotifier& p) { return p.server(); }
};

}  // namespace duskwell
