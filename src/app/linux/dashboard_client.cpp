#include "dashboard_client.h"

#include <signal.h>
#include <unistd.h>

#include <asio/connect.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/read_until.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <ctime>
#include <iostream>
#include <thread>

#include "app/view_state.h"
#include "commands/control_protocol.h"
#include "commands/phone_request.h"
#include "core/app_config.h"
#include "core/localization.h"
#include "dashboard.h"
#include "phone/ntfy_access.h"
#include "phone_server_prompt.h"
#include "terminal_session.h"
#include "terminal_text.h"

namespace duskwell {
namespace {

using Socket = asio::local::stream_protocol::socket;

// A view state is a few kilobytes; anything far larger is not one.
constexpr std::size_t kMaxLine = 4 * 1024 * 1024;

// The service may be starting (its lock taken, its socket not yet open): try for a while.
std::optional<Socket> connectToService(asio::io_context& io) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (true) {
        Socket socket(io);
        std::error_code ec;
        socket.connect(asio::local::stream_protocol::endpoint(AppConfig::controlSocket()), ec);
        if (!ec) return socket;
        if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

std::string notRunningText() {
    return T("Duskwell 서비스가 실행 중이 아니에요. `systemctl --user start duskwelld`(또는 `duskwelld`)로 시작하세요.",
             "The Duskwell service is not running. Start it with `systemctl --user start duskwelld` (or run "
             "`duskwelld`).");
}

class AttachedDashboard {
public:
    AttachedDashboard(asio::io_context& io, Socket watch, std::optional<TerminalSession> terminal)
        : io_(io), watch_(std::move(watch)), terminal_(std::move(terminal)), input_(io), resize_(io, SIGWINCH),
          signals_(io, SIGINT, SIGTERM, SIGHUP), buffer_(kMaxLine) {}

    // Bytes read past the "ok" line before the dashboard took over.
    void prime(asio::streambuf& rest) {
        const std::size_t size = rest.size();
        buffer_.commit(asio::buffer_copy(buffer_.prepare(size), rest.data()));
    }

    int run() {
        if (terminal_) {
            input_.assign(::dup(terminal_->inFd()));
            readKeys();
            waitResize();
        }
        signals_.async_wait([this](const std::error_code& ec, int) {
            if (!ec) finish(0);
        });
        readState();
        io_.run();
        return status_;
    }

private:
    void finish(int status) {
        if (done_) return;
        done_ = true;
        status_ = status;
        io_.stop();
    }

    void readState() {
        asio::async_read_until(watch_, buffer_, '\n', [this](const std::error_code& ec, std::size_t n) {
            if (ec) {
                // The service ended: as asked (Q), or on its own.
                if (!stopping_) farewell_ = T("Duskwell 서비스가 끝났어요.", "The Duskwell service stopped.");
                return finish(stopping_ ? 0 : 1);
            }
            std::string line(asio::buffers_begin(buffer_.data()), asio::buffers_begin(buffer_.data()) + n);
            buffer_.consume(n);
            if (auto state = ViewProtocol::decode(line)) {
                state_ = std::move(*state);
                redraw();
            }
            readState();
        });
    }

    DashboardView view() const {
        DashboardView v = makeDashboardView(state_->status, popoverFor(*state_, screen_),
                                            state_->settings.phone.toggle.action, std::nullopt, color_);
        // q only closes this window; Q stops the service it shows.
        for (auto& b : v.bindings) {
            if (b.key == Key::character('q')) b.hint = T("닫기", "close");
        }
        v.bindings.push_back(KeyBinding{Key::character('Q'), "Q", T("서비스 중지", "stop service"),
                                        DashboardCommand{DashboardCommand::Kind::perform, Action::make(Action::Kind::quit)}});
        v.notice = notice_;
        if (codePage_) showCodePage(v);
        if (prompt_) v.prompt = prompt_->line();
        return v;
    }

    void redraw() {
        if (!state_) return;
        if (!terminal_) return logLine();
        const auto [w, h] = terminal_->size();
        std::string frame;
        for (const auto& line : renderDashboard(view(), w, h, scroll_)) {
            if (!frame.empty()) frame += "\n";
            frame += line;
        }
        if (frame == lastFrame_) return;
        lastFrame_ = frame;
        terminal_->draw(frame);
    }

    // A dumb terminal: the hero card's words and the last message, once per change.
    void logLine() {
        const auto& hero = state_->main.hero;
        std::string line = hero.headline + " · " + hero.detail;
        if (state_->status.title) line += " ·" + *state_->status.title;
        if (state_->settings.message) line += " · " + *state_->settings.message;
        if (line == lastFrame_) return;
        lastFrame_ = line;
        std::cout << clockPrefix() << line << std::endl;
    }

    void waitResize() {
        resize_.async_wait([this](const std::error_code& ec, int) {
            if (ec) return;
            lastFrame_.clear();
            redraw();
            waitResize();
        });
    }

    void readKeys() {
        input_.async_read_some(asio::buffer(keys_), [this](const std::error_code& ec, std::size_t n) {
            if (ec) return finish(0);  // the terminal went away
            for (const Key& key : decodeKeys(std::string_view(keys_, n))) {
                if (!handle(key)) return;
            }
            readKeys();
        });
    }

    // False when the dashboard is finished.
    bool handle(const Key& key) {
        if (!state_) return true;
        if (prompt_) {
            feedPrompt(key);
            redraw();
            return true;
        }
        const auto command = commandForKey(view().bindings, key);
        if (!command) return true;
        notice_.reset();
        switch (command->kind) {
            case DashboardCommand::Kind::quit:
                finish(0);
                return false;
            case DashboardCommand::Kind::scrollDown: ++scroll_; break;
            case DashboardCommand::Kind::scrollUp: --scroll_; break;
            case DashboardCommand::Kind::showCode: codePage_ = true; break;
            case DashboardCommand::Kind::hideCode: codePage_ = false; break;
            case DashboardCommand::Kind::perform: perform(*command->action); break;
        }
        redraw();
        return true;
    }

    // The server and token go to the service as socket-only requests, never as URLs.
    void feedPrompt(const Key& key) {
        feedPhoneServerPrompt(prompt_, key,
                              {[this](const std::string& server) { send(PhoneRequest::server(server)); },
                               [this](const std::optional<std::string>& token) { send(PhoneRequest::token(token)); }});
    }

    // The page and its scroll are this window's own; everything else is the service's.
    void perform(const Action& action) {
        if ((notice_ = noticeInsteadOf(action))) return;
        switch (action.kind) {
            case Action::Kind::openSettings:
                screen_ = Screen::settings;
                scroll_ = 0;
                break;  // and the service re-reads what the settings page shows
            case Action::Kind::back:
                screen_ = Screen::main;
                scroll_ = 0;
                return;
            case Action::Kind::editPhoneServer:
                // The server row shows the address in use; the prompt offers it for editing.
                prompt_.emplace(state_->settings.phone.server ? state_->settings.phone.server->value : std::string(),
                                NtfyAccess::publicServer());
                return;
            case Action::Kind::quit:
                stopping_ = true;
                notice_ = T("서비스를 멈추는 중…", "Stopping the service…");
                break;
            default:
                break;
        }
        send(ViewProtocol::actionRequest(action));
    }

    // One request per connection; the reply only matters when it is an error.
    void send(const std::string& request) {
        auto socket = std::make_shared<Socket>(io_);
        auto reply = std::make_shared<asio::streambuf>(64 * 1024);
        socket->async_connect(
            asio::local::stream_protocol::endpoint(AppConfig::controlSocket()),
            [this, socket, reply, line = std::make_shared<std::string>(request + "\n")](const std::error_code& ec) {
                if (ec) return failed(ec.message());
                asio::async_write(*socket, asio::buffer(*line), [this, socket, reply, line](const std::error_code& ec, std::size_t) {
                    if (ec) return failed(ec.message());
                    asio::async_read_until(*socket, *reply, '\n', [this, socket, reply](const std::error_code& ec, std::size_t n) {
                        if (ec) return;  // the service is going away; the watch says so
                        std::string text(asio::buffers_begin(reply->data()), asio::buffers_begin(reply->data()) + n);
                        const auto parsed = ControlProtocol::parse(text);
                        if (parsed && parsed->kind == ControlProtocol::ReplyKind::error) failed(parsed->text);
                    });
                });
            });
    }

    void failed(const std::string& why) {
        if (done_ || stopping_) return;
        notice_ = T("서비스가 거절했어요: ", "The service refused: ") + why;
        lastFrame_.clear();
        redraw();
    }

public:
    std::optional<std::string> farewell_;

private:
    asio::io_context& io_;
    Socket watch_;
    std::optional<TerminalSession> terminal_;
    asio::posix::stream_descriptor input_;
    asio::signal_set resize_;
    asio::signal_set signals_;
    asio::streambuf buffer_;
    std::optional<ViewState> state_;
    Screen screen_ = Screen::main;
    int scroll_ = 0;
    std::optional<std::string> notice_;
    std::string lastFrame_;
    const bool color_ = terminalWantsColor();
    char keys_[64] = {};
    bool codePage_ = false;
    std::optional<PhoneServerPrompt> prompt_;  // the ntfy server being entered
    bool stopping_ = false;
    bool done_ = false;
    int status_ = 0;
};

}  // namespace

int runAttachedDashboard() {
    asio::io_context io;
    auto socket = connectToService(io);
    if (!socket) {
        std::cerr << "duskwelld: " << notRunningText() << "\n";
        return 1;
    }
    std::error_code ec;
    asio::write(*socket, asio::buffer(std::string(ViewProtocol::watch) + "\n"), ec);
    asio::streambuf first(64 * 1024);
    const std::size_t n = ec ? 0 : asio::read_until(*socket, first, '\n', ec);
    std::string line(asio::buffers_begin(first.data()), asio::buffers_begin(first.data()) + n);
    const auto reply = ControlProtocol::parse(line);
    if (!reply || reply->kind != ControlProtocol::ReplyKind::ok) {
        std::cerr << "duskwelld: "
                  << (reply && reply->kind == ControlProtocol::ReplyKind::notHandled
                          ? T("실행 중인 duskwelld가 너무 오래된 버전이에요. 다시 시작하세요.",
                              "The running duskwelld is too old to show a dashboard; restart it.")
                          : T("서비스에 연결하지 못했어요: ", "Couldn't attach to the service: ") +
                                (reply ? reply->text : ec ? ec.message() : line))
                  << "\n";
        return 1;
    }
    // asio may have read past the "ok" line: hand the rest to the dashboard's buffer.
    first.consume(n);
    std::optional<TerminalSession> terminal =
        terminalIsDumb() ? std::optional<TerminalSession>() : TerminalSession::begin(STDIN_FILENO, STDOUT_FILENO);
    int status = 0;
    std::optional<std::string> farewell;
    {
        AttachedDashboard dashboard(io, std::move(*socket), std::move(terminal));
        dashboard.prime(first);
        status = dashboard.run();
        farewell = dashboard.farewell_;
    }  // the terminal is put back before anything is printed
    if (farewell) std::cout << *farewell << "\n";
    return status;
}

}  // namespace duskwell
