#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"
#include "tests/tools/child.h"
#include "tools/fxsline/line_mount.h"
#include "tools/protocol/control_client.h"

/// Whether this program has a loopback interface of its own, so that what other programs send to ports that were free a
/// moment ago cannot disturb it. It takes one when it starts, if it may.
extern bool const own_network;

/// A free UDP port of 127.0.0.1.
std::uint16_t free_port();

/// Telephones whose clock the test steps, served as files to the process under test.
class telephones {
public:
    /// What each of the four says, from the moment its device is opened.
    explicit telephones(std::vector<fxsline::speech> says);
    ~telephones();

    /// The value of the process's option --tdm.
    std::string tdm_path() const { return directory.path("sdt"); }
    /// Lets 10 ms pass at a time and waits until the process has done its part of each.
    void run(int ticks);
    /// What a telephone has heard since the clock started, 80 samples a tick.
    std::vector<std::int16_t> const& heard(unsigned line) const { return ears[line]; }
    /// Whether a telephone hears anything in the next second.
    bool hears(unsigned line);
    /// Waits until the process has opened that many devices.
    bool wait_for_open(unsigned devices);
    fxsline::line_mount& mount() { return *files; }
    fxsline::line_bank& bank() { return *lines; }
    std::vector<fxsline::line_event> const& events() const { return driver_events; }

private:
    temporary_directory directory;
    std::vector<std::vector<std::int16_t>> ears;
    std::vector<fxsline::line_event> driver_events;
    std::unique_ptr<fxsline::line_bank> lines;
    std::unique_ptr<fxsline::line_mount> files;
};

/// Four telephones that speak all the time, as loud as that.
std::unique_ptr<telephones> speakers(unsigned seed = 31, int peak = 8000, int seconds = 1);

/// The process under test (FXSMEDIA_PROCESS in the environment, else the one of this build), with its standard error
/// kept: a sanitizer's report ends the test. Killed with its owner.
class media_process {
public:
    explicit media_process(std::vector<std::string> arguments);
    ~media_process();

    static std::string path();
    pid_t pid() const { return run.id(); }
    bool alive() { return run.alive(); }
    /// Waits for its end; the exit status.
    int wait();
    std::string error_output();

private:
    child run;
    bool ends = false;  ///< as it ought to
};

/// The process with its control link, ready for commands.
class controlled_process {
public:
    /// --port and --debug are added: no real-time priority in tests.
    explicit controlled_process(std::vector<std::string> arguments);

    void send(protocol::bytes const& datagram) { expect_sent(client.send(datagram)); }
    protocol::open_reply open(std::uint16_t call);
    /// Connects calls a and b with each other on 127.0.0.1; both send and accept this codec.
    void connect(std::uint16_t a, std::uint16_t b, protocol::codec_choice codec, protocol::media_command extra = {});
    void put_on_line(std::uint16_t call, std::uint16_t line);
    /// Calls 0 and 1 in linear PCM, on lines 0 and 1.
    void call_between(telephones& lines);
    /// Waits until the process has carried out everything sent before.
    void settle();

    std::uint16_t port;
    media_process process;
    protocol::control_client client;

private:
    static void expect_sent(bool sent);
};
