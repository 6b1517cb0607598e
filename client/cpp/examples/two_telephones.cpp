// Call control in one file: connects the telephones on lines 0 and 1 with each other until it is ended, whatever
// becomes of the process meanwhile.
// usage: two_telephones PORT

#include <fxsmedia/client.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

class two_telephones {
public:
    bool start(int port) { return link.start(port); }
    int fd() const { return link.fd(); }
    int timeout_ms() const { return link.timeout_ms(); }
    void serve() { link.serve(); }
    void end() { link.send(fxsmedia::end_command{.call = 0}, fxsmedia::end_command{.call = 1}); }

    void on(fxsmedia::session_started const&) {
        puts("started");
        open();
    }
    void on(fxsmedia::process_lost const& loss) { puts(loss.refused ? "lost, it has ended" : "lost"); }
    void on(fxsmedia::process_resumed const&) { puts("resumed"); }
    void on(fxsmedia::process_restarted const&) {
        puts("restarted");
        open();
    }
    void on(fxsmedia::open_report const& opened) {
        if (opened.call > 1)
            return;
        rtp_port[opened.call] = opened.rtp_port;
        if (rtp_port[0] != 0 && rtp_port[1] != 0)
            connect();
    }
    void on(fxsmedia::confirmed const&) { puts("connected"); }
    void on(fxsmedia::timed_out const& request) { printf("no answer to %d of %d\n", request.tag, request.id); }
    void on(fxsmedia::new_ssrc_report const& stream) { printf("audio to line %d\n", stream.call); }
    void on(fxsmedia::log_report const& line) {
        printf("log %d %.*s\n", line.level, static_cast<int>(line.text.size()), line.text.data());
    }
    void on(auto const&) {}

private:
    void open() {
        for (int call : {0, 1}) {
            rtp_port[call] = 0;
            link.send(fxsmedia::open_command{.call = call});
        }
    }
    void connect() {
        fxsmedia::codec_choice const a_law{protocol::codec_number::pcma, 8};
        for (int call : {0, 1}) {
            int const far_port = rtp_port[1 - call];
            link.send(
                fxsmedia::media_command{
                    .call = call,
                    .send = a_law,
                    .map = {&a_law, 1},
                    .event_pt = 101,
                    .rtp = fxsmedia::endpoint::from_text("127.0.0.1", far_port),
                    .rtcp = fxsmedia::endpoint::from_text("127.0.0.1", far_port + 1),
                },
                fxsmedia::tdm_command{.call = call, .line = call});
        }
        link.confirm(0);
    }

    int rtp_port[2] = {};
    fxsmedia::client<two_telephones> link{*this};
};

static volatile sig_atomic_t ended = 0;

int main(int argc, char** argv) {
    static two_telephones telephones;  // too large for a small stack
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc != 2 || !telephones.start(atoi(argv[1]))) {
        fprintf(stderr, "usage: two_telephones PORT\n");
        return 2;
    }
    for (int const number : {SIGINT, SIGTERM})
        signal(number, [](int) { ended = 1; });
    while (ended == 0) {
        pollfd ready{telephones.fd(), POLLIN, 0};
        poll(&ready, 1, telephones.timeout_ms());
        telephones.serve();
    }
    telephones.end();
    return 0;
}
