// The lines through a real mount in this process, on a stepped clock. A whole process in select over several lines:
// tests/e2e/e2e_call_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>

#include "tests/tools/fxsline/fixtures.h"
#include "tests/tools/fxsline/mount_guard.h"
#include "tools/fxsline/line_mount.h"

namespace fxsline {
namespace {

long read_into(int fd, samples& out) {
    long const result = result_of(read(fd, out.data(), out.size() * 2));
    out.resize(result > 0 ? static_cast<size_t>(result) / 2 : 0);
    return result;
}

long write_from(int fd, samples const& in) {
    return result_of(write(fd, in.data(), in.size() * 2));
}

class LineMount : public testing::Test {
protected:
    LineMount() {
        bank_config config;
        for (int16_t line = 0; line < 4; line++)
            config.lines[static_cast<size_t>(line)].says =
                speech::recording(counting(8000, static_cast<int16_t>(line * 8000)), true, "test");
        bank.emplace(config,
                     [this](line_event const& event) { events += event_text(event).substr(13) + "\n"; });
        bank->line(0).tap_heard([this](block const& b) { heard.insert(heard.end(), b.begin(), b.end()); });
        mount.emplace(*bank);
    }
    void SetUp() override {
        ASSERT_EQ(mount->open({.mountpoint = directory.path("")}), mount_error::none) << mount->error();
        mount->start();
    }
    void TearDown() override {
        for (int const fd : descriptors)
            close(fd);
    }

    int open_file(std::string const& name, int flags = O_RDWR) {
        descriptors.push_back(open(directory.path(name).c_str(), flags | O_CLOEXEC));
        EXPECT_GE(descriptors.back(), 0) << name << ": " << strerror(errno);
        return descriptors.back();
    }
    std::string text_of(std::string const& name) { return contents(directory.path(name)); }
    long say(std::string const& name, std::string const& text) {
        return write_text(directory.path(name), text);
    }

    temporary_directory directory;
    mount_guard guard{directory.path("")};
    std::string events;
    samples heard;
    std::optional<line_bank> bank;
    std::optional<line_mount> mount;
    std::vector<int> descriptors;
};

TEST_F(LineMount, ReadsTakeWhatIsThereOrWait) {
    int const fd = open_file("sdt1"), impatient = open_file("sdt1", O_RDONLY | O_NONBLOCK);
    samples in(80), got(640);
    EXPECT_EQ(read_into(impatient, in), -EAGAIN);
    auto waiting = std::async(std::launch::async, [&] { return read_into(fd, got); });
    ASSERT_TRUE(mount->settle());
    EXPECT_EQ(say("clock", "1\n"), 2);
    EXPECT_EQ(waiting.get(), 160);
    EXPECT_EQ(got, counting(80, 8000));
    mount->advance(20);
    in.resize(9999);  // the drain read: the newest eight blocks
    EXPECT_EQ(read_into(impatient, in), 1280);
    EXPECT_EQ(in, counting(640, 8000 + 13 * 80));
    EXPECT_EQ(result_of(read(fd, in.data(), 1)), -EINVAL);
}

TEST_F(LineMount, WritesFillTheRoomOrWaitForIt) {
    int const fd = open_file("sdt0"), impatient = open_file("sdt0", O_WRONLY | O_NONBLOCK);
    auto const write_later = [fd] { return write_from(fd, counting(80, 500)); };
    EXPECT_EQ(result_of(write(fd, "x", 1)), -EINVAL);
    EXPECT_EQ(write_from(fd, counting(250, 0)), 320);
    EXPECT_EQ(write_from(impatient, samples(80)), -EAGAIN);
    pollfd room{fd, POLLOUT, 0};
    EXPECT_EQ(poll(&room, 1, 0), 0);
    auto waiting = std::async(std::launch::async, write_later);
    ASSERT_TRUE(mount->wait_for_writer(0));
    mount->advance();
    EXPECT_EQ(waiting.get(), 160);
    mount->advance(3);
    EXPECT_EQ(poll(&room, 1, 0), 1);
    samples expected = counting(160, 0);
    std::ranges::copy(counting(80, 500), std::back_inserter(expected));
    expected.resize(320);
    EXPECT_EQ(heard, expected);
    EXPECT_EQ(write_from(fd, samples(160)), 320);
    waiting = std::async(std::launch::async, write_later);
    ASSERT_TRUE(mount->wait_for_writer(0));
    EXPECT_EQ(ioctl(fd, 0x20003005, 0), 0);  // makes room without a tick
    EXPECT_EQ(waiting.get(), 160);
}

TEST_F(LineMount, ControlFiles) {
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path("")), {}), 14);
    for (auto const& [file, text, result] : {std::tuple{"clock", "12", 2L},
                                             {"clock", "-1", -EINVAL},
                                             {"clock", "1 ", -EINVAL},
                                             {"clock", "360001", -EINVAL},
                                             {"clock", "\n", -EINVAL},
                                             {"line0.stats", "1", -EACCES},
                                             {"line0.say", "hello", -EINVAL},
                                             {"line0.say", "tone 440 -20\n", 13}})
        EXPECT_EQ(say(file, text), result) << file << " " << text;
    EXPECT_EQ(say("line0.say", "wav " + directory.path("x/../sdt0")), -EINVAL);
    EXPECT_TRUE(mount->wait_until([this] { return events.find("lies in this mount") != events.npos; }));
    EXPECT_EQ(text_of("clock"), "12\n");
    EXPECT_EQ(text_of("line0.say"), "tone 440 -20\n");
    EXPECT_EQ(text_of("line0.stats"),
              "time_ms 120\ndevice closed\nsays tone 440 -20\nspeech playing\nopens 0\nblocks_read 0\n"
              "blocks_written 0\nsamples_to_read 0\nsamples_to_play 0\noverruns 0\nunderruns 0\ntx_clears "
              "0\nled off\nheard_level_dbfs -99.0\nheard_peak 0\n");
}

TEST_F(LineMount, SignalInterruptsAWaitingRead) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    int const fd = open_file("sdt0");
    samples in(80);
    std::promise<long> result;
    std::thread reader([&] { result.set_value(read_into(fd, in)); });
    ASSERT_TRUE(mount->settle());
    pthread_kill(reader.native_handle(), SIGUSR1);
    EXPECT_EQ(result.get_future().get(), -EINTR);
    reader.join();
    mount->advance();
    in.resize(80);
    EXPECT_EQ(read_into(fd, in), 160) << "the interrupted read must not have taken it";
}

TEST_F(LineMount, StopLeavesNobodyWaiting) {
    int const reader = open_file("sdt0"), polled = open_file("sdt1"), writer = open_file("sdt0");
    samples in(80);
    EXPECT_EQ(write_from(writer, samples(160)), 320);
    auto writing = std::async(std::launch::async, [&] { return write_from(writer, samples(80)); });
    auto reading = std::async(std::launch::async, [&] { return read_into(reader, in); });
    auto polling = std::async(std::launch::async, [&] {
        pollfd wait{polled, POLLIN, 0};
        poll(&wait, 1, -1);
        return wait.revents;
    });
    ASSERT_TRUE(mount->settle() && mount->wait_for_writer(0));
    mount->stop();
    EXPECT_EQ(reading.get(), -ENODEV);
    EXPECT_EQ(writing.get(), -ENODEV);
    EXPECT_NE(polling.get() & POLLERR, 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("")));
    SetUp();
    EXPECT_EQ(text_of("clock"), "0\n");
}

}  // namespace
}  // namespace fxsline
