#include "phone_server_prompt.h"

#include "core/localization.h"
#include "phone/ntfy_access.h"

namespace duskwell {

PhoneServerPrompt::PhoneServerPrompt(std::string server, std::string publicServer)
    : text_(server == publicServer ? std::string() : std::move(server)), publicServer_(std::move(publicServer)) {}

PhoneServerPrompt::Result PhoneServerPrompt::feed(const Key& key) {
    switch (key.kind) {
        case Key::Kind::escape:
            return Result::cancelled;
        case Key::Kind::backspace:
            if (!text_.empty()) text_.pop_back();
            error_.reset();
            return Result::editing;
        case Key::Kind::character:
            if (text_.size() < 512) text_ += key.ch;
            error_.reset();
            return Result::editing;
        case Key::Kind::up:
        case Key::Kind::down:
            return Result::editing;
        case Key::Kind::enter:
            break;
    }
    if (step_ == Step::server) {
        if (!text_.empty()) {
            const auto normalized = NtfyAccess::normalizedServer(text_);
            if (!normalized) {
                error_ = T("https://호스트[:포트] 형식이어야 해요", "must be https://host[:port]");
                return Result::editing;
            }
            server_ = *normalized;
        }
        step_ = Step::token;
        text_.clear();
        return Result::editing;
    }
    if (text_.empty()) return Result::done;  // the token stays as it is
    if (text_ == "-") {
        tokenChange_ = std::optional<std::string>();
        return Result::done;
    }
    if (!NtfyAccess::validToken(text_)) {
        error_ = T("공백 없는 인쇄 가능한 문자여야 해요", "printable characters without blanks");
        return Result::editing;
    }
    tokenChange_ = std::optional<std::string>(text_);
    return Result::done;
}

std::string PhoneServerPrompt::line() const {
    std::string out;
    if (step_ == Step::server) {
        out = T("ntfy 서버 (비우면 ", "ntfy server (empty: ") + publicServer_ + "): " + text_ + "_";
    } else {
        out = T("액세스 토큰 (Enter 유지, - 삭제): ", "Access token (Enter keeps, - removes): ") +
              std::string(text_.size(), '*') + "_";
    }
    if (error_) out += "  — " + *error_;
    return out + T("   Esc 취소", "   Esc cancels");
}

void feedPhoneServerPrompt(std::optional<PhoneServerPrompt>& prompt, const Key& key,
                           const PhoneServerAnswer& answer) {
    switch (prompt->feed(key)) {
        case PhoneServerPrompt::Result::editing:
            return;
        case PhoneServerPrompt::Result::cancelled:
            break;
        case PhoneServerPrompt::Result::done:
            answer.server(prompt->server());
            if (const auto& token = prompt->tokenChange()) answer.token(*token);
            break;
    }
    prompt.reset();
}

}  // namespace duskwell
