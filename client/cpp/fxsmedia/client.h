#pragma once

#include <fxsmedia/commands.h>
#include <fxsmedia/events.h>
#include <fxsmedia/reports.h>
#include <fxsmedia/resync.h>
#include <fxsmedia/socket.h>

#include <algorithm>

namespace fxsmedia {

/// Sends commands to the process, and calls handler.on(event) for each report and each of the events of events.h; the
/// handler ends its overloads with `void on(auto const&) {}`, for whatever it does not want.
///
/// For one thread, allocates nothing, about 130 KB. The handler may call everything but serve(), and must not destroy
/// the client.
///
/// **How a restart is noticed.** A restarted process knows only the peer of its command line, so for this client's
/// socket it falls silent, and it has forgotten the log level. After 2 s without a heartbeat the client takes the
/// session again. Then, with every confirm() and every 5 s, it *asks*: a playback command without a call, the log
/// level, the same playback command again, session. The process answers each playback command with a log line of level
/// 0, but a restarted one only the second: two lines before the empty answer say that all is well, one that everything
/// is forgotten, none that somebody else has taken the session meanwhile. The handler never sees these lines.
///
/// **How a mute process is cured.** A datagram with a wrong length, from anyone, makes the process wait for the bytes
/// that were promised (docs/control-protocol.md), while its heartbeats go on. Zeros supply them, from another socket,
/// so that what they complete is dropped. They do no harm to a process that is only busy.
template <class handler>
class client {
public:
    explicit client(handler& told, client_settings const& chosen = {}) : events(told), settings(chosen) {}
    client(client const&) = delete;
    client& operator=(client const&) = delete;

    /// Begins to look for the process; session_started or process_lost says what came of it. false: no socket, see
    /// errno.
    bool start(int process_port, char const* process_ip = "127.0.0.1") {
        stop();
        port = process_port;
        ip = process_ip;
        if (!socket.open(ip, port))
            return false;
        known = told_lost = false;
        run = 0;
        search(settings.clock_ms(), settings.answer_timeout_ms);
        return true;
    }
    /// Forgets everything; the calls in the process stay as they are.
    void stop() {
        socket.close();
        state = phase::stopped;
        in_session = false;
        token_count = 0;
        ask_due = 0;
        for (std::int64_t& due : open_due)
            due = 0;
    }

    int fd() const { return socket.fd(); }  ///< to be watched for reading; -1 when stopped
    bool connected() const { return in_session; }

    /// How long the loop may wait before it calls serve(): ms, 0 for at once, -1 for ever.
    int timeout_ms() const {
        if (state == phase::stopped)
            return -1;
        std::int64_t const left = next_due() - settings.clock_ms();
        return left < 0 || socket.refused() ? 0 : static_cast<int>(left);
    }

    /// To be called when fd() is readable and when the time-out has passed; never does harm. Calls the handler.
    void serve() {
        while (state != phase::stopped) {
            std::optional<byte_view> const datagram = socket.receive(incoming);
            if (!datagram)
                break;
            last_heard = settings.clock_ms();
            reports::read(*datagram, [this](auto const& report) { this->take(report); });
        }
        if (state != phase::stopped)
            pass_time(settings.clock_ms());
    }

    /// Sends commands in one datagram. false: not connected(), too long together, or a value that cannot be written;
    /// nothing was sent then.
    template <class... command>
    bool send(command const&... commands) {
        if (!in_session || !(allowed(commands) && ...))
            return false;
        datagram_writer writer(outgoing);
        if (!(writer.append(commands) && ...) || !socket.send(writer.datagram()))
            return false;
        (note(commands), ...);
        return true;
    }

    /// Asks whether everything sent so far has been carried out; confirmed or timed_out will tell, with this token.
    /// false: not connected(), or 16 tokens wait for an answer.
    bool confirm(int token) {
        if (!in_session || token_count == most_tokens)
            return false;
        tokens[token_count++] = token;
        if (ask_due == 0 && !ask())
            token_count--;
        return ask_due != 0;
    }

private:
    enum class phase { stopped, searching, asking, watching };

    static constexpr int most_tokens = 16;
    static constexpr int retry_ms = 250;
    static constexpr int silence_ms = 2000;  ///< two heartbeats
    static constexpr int check_ms = 5000;
    static constexpr std::string_view echo = "No playback channel found";

    // Sending

    template <class command>
    bool allowed(command const& one) const {
        if constexpr (command::tag == play_command::tag)  // would be answered as a question is
            return one.call && *one.call >= 0 && *one.call < protocol::call_count;
        return true;
    }
    template <class command>
    void note(command const& one) {
        if constexpr (command::tag == open_command::tag)
            open_due[open_index(one.call.value_or(protocol::no_call))] =
                settings.clock_ms() + settings.answer_timeout_ms;
        if constexpr (command::tag == log_level_command::tag)
            settings.log_level = one.level.value_or(settings.log_level);
    }
    static int open_index(int call) { return call >= 0 && call < protocol::no_call ? call : protocol::no_call; }

    /// For all tokens; not while a question is open: no answer tells which one it belongs to.
    bool ask() {
        datagram_writer writer(outgoing);
        play_command const question_mark;
        if (!writer.append(question_mark) || !writer.append(log_level_command{settings.log_level}) ||
            !writer.append(question_mark) || !writer.append(session_command{}) || !socket.send(writer.datagram()))
            return false;
        last_asked = settings.clock_ms();
        ask_due = last_asked + settings.answer_timeout_ms;
        asked_tokens = token_count;
        return true;
    }

    void send_zeros() {
        control_socket stranger;
        if (!stranger.open(ip, port))
            return;
        std::memset(outgoing, 0, resync_piece_bytes);
        for (std::size_t left = resync_bytes(run); left > 0;) {
            std::size_t const piece = std::min(left, resync_piece_bytes);
            stranger.send(byte_view(outgoing, piece));
            left -= piece;
        }
    }

    // Receiving

    template <class report>
    void take(report const& one) {
        if (state != phase::stopped && in_session)
            events.on(one);
    }
    void take(open_report const& one) {
        if (!in_session)
            return;
        open_due[open_index(one.call)] = 0;
        events.on(one);
    }
    void take(log_report const& one) {
        if (one.level == 0 && one.text == echo)
            echoes++;
        else if (in_session)
            events.on(one);
    }
    void take(heartbeat_report const&) {
        int const echoed = echoes;
        echoes = 0;
        if (state == phase::searching)
            state = ++answers > 1 && ask() ? phase::asking : phase::searching;
        else if (echoed > 0 && ask_due != 0)
            answered(echoed > 1);
        else if (state == phase::watching && ask_due == 0 && last_heard - last_asked >= check_ms)
            ask();
    }

    void answered(bool remembers) {
        ask_due = 0;
        if (!remembers)
            forget_requests();
        if (state == phase::stopped)
            return;
        int done[most_tokens];
        int const done_count = take_asked(done);
        bool const was_known = known;
        bool const was_asking = state == phase::asking;
        state = phase::watching;
        known = in_session = true;
        told_lost = false;
        run = 0;
        if (token_count > 0)
            ask();
        if (!was_known)
            events.on(session_started{});
        else if (!remembers)
            events.on(process_restarted{});
        else if (was_asking)
            events.on(process_resumed{});
        for (int i = 0; i < done_count && in_session; i++)
            events.on(confirmed{done[i]});
    }
    int take_asked(int* done) {
        int const count = asked_tokens;
        std::copy_n(tokens, count, done);
        std::copy(tokens + count, tokens + token_count, tokens);
        token_count -= count;
        asked_tokens = 0;
        return count;
    }

    // Time

    std::int64_t next_due() const {
        std::int64_t due = state == phase::searching  ? next_try
                           : state == phase::watching ? last_heard + silence_ms
                                                      : INT64_MAX;
        due = ask_due != 0 && ask_due < due ? ask_due : due;
        for (std::int64_t const open : open_due)
            due = open != 0 && open < due ? open : due;
        return due;
    }

    void pass_time(std::int64_t now) {
        for (int call = 0; call <= protocol::no_call; call++)
            if (open_due[call] != 0 && open_due[call] <= now)
                fail_open(call);
        if (socket.refused()) {
            socket.forget_refusal();
            if (state != phase::searching)
                search(now, 0);
            run = 0;
            next_run = now + settings.answer_timeout_ms;  // while there is no process, there is none to cure
            tell_lost(true);
        } else if (ask_due != 0 && ask_due <= now) {
            search(now, 0);
        } else if (state == phase::watching && last_heard + silence_ms <= now) {
            search(now, settings.answer_timeout_ms);
        }
        if (state == phase::searching)
            search_on(now);
    }

    /// Without an answer for so long the process is lost.
    void search(std::int64_t now, int patience_ms) {
        forget_requests();
        if (socket.fd() < 0)  // stopped by the handler
            return;
        state = phase::searching;
        next_try = now;
        next_run = now + patience_ms;
    }
    void search_on(std::int64_t now) {
        if (now >= next_run)
            tell_lost(false);
        if (state != phase::searching || now < next_try)
            return;
        if (now >= next_run && run < resync_runs && settings.resync) {
            send_zeros();
            run++;
            next_run = now + settings.answer_timeout_ms;
        }
        // Two answers at once are no heartbeats.
        datagram_writer writer(outgoing);
        writer.append(session_command{});
        writer.append(session_command{});
        socket.send(writer.datagram());
        answers = 0;
        next_try = now + retry_ms;
    }
    void tell_lost(bool was_refused) {
        if (told_lost || state == phase::stopped)
            return;
        told_lost = true;
        events.on(process_lost{was_refused});
    }

    /// Meanwhile the handler can ask for nothing new.
    void forget_requests() {
        in_session = false;
        ask_due = 0;
        int const count = token_count;
        token_count = asked_tokens = 0;
        for (int i = 0; i < count; i++)
            events.on(timed_out{protocol::cmd_session::tag, tokens[i]});
        for (int call = 0; call <= protocol::no_call; call++)
            if (open_due[call] != 0)
                fail_open(call);
    }
    void fail_open(int call) {
        open_due[call] = 0;
        events.on(timed_out{protocol::cmd_open::tag, call});
    }

    handler& events;
    client_settings settings;
    control_socket socket;
    char const* ip = nullptr;
    int port = 0;
    phase state = phase::stopped;
    bool known = false;       ///< session_started was told
    bool in_session = false;  ///< as the handler knows it
    bool told_lost = false;
    int echoes = 0;   ///< log lines since the last empty answer that answer a question
    int answers = 0;  ///< empty ones since the last try
    int run = 0;      ///< of zeros, since the process was lost
    std::int64_t last_heard = 0;
    std::int64_t last_asked = 0;
    std::int64_t next_try = 0;
    std::int64_t next_run = 0;
    std::int64_t open_due[protocol::no_call + 1] = {};  ///< 0: nothing asked
    std::int64_t ask_due = 0;                           ///< 0: no question is open
    int tokens[most_tokens] = {};
    int token_count = 0;
    int asked_tokens = 0;  ///< the first so many are in the question that is open
    std::uint8_t incoming[largest_datagram_bytes];
    std::uint8_t outgoing[largest_datagram_bytes];
};

}  // namespace fxsmedia
