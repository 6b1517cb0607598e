// The lines through a real mount in this process, on a stepped clock. A whole process in select over several lines:
// tests/e2e/e2e_process_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cerrno>
#include <future>

#include "tests/e2e/media_process.h"
#include "tests/tools/fxsline/fixtures.h"

namespace {

/// What a system call returned, or -errno.
long result_of(ssize_t returned) {
    return returned < 0 ? -errno : returned;
}

class mounted_lines : public testing::Test {
protected:
    /// A thread that waits for an answer of this same process can't be killed: if the serving thread crashes or hangs,
    /// a child cuts the connection, long after any honest run.
    mounted_lines() : test(getpid()), guard(fork()) {
        if (guard != 0)
            return;
        sleep(60);
        if (getppid() == test)
            kill(test, SIGKILL);
        for (int const how : {MNT_FORCE, MNT_DETACH})
            umount2(directory.c_str(), how);
        _exit(0);
    }
    ~mounted_lines() override {
        kill(guard, SIGKILL);
        waitpid(guard, nullptr, 0);
        for (int const fd : descriptors)
            close(fd);
    }

    int open_file(std::string const& name, int flags = O_RDWR) {
        return descriptors.emplace_back(open((directory + name).c_str(), flags | O_CLOEXEC));
    }
    long say(std::string const& name, std::string const& text) {
        return result_of(write(open_file(name, O_WRONLY | O_TRUNC), text.data(), text.size()));
    }
    static long read_into(int fd, samples& out) {
        long const result = result_of(read(fd, out.data(), out.size() * 2));
        out.resize(result > 0 ? static_cast<size_t>(result) / 2 : 0);
        return result;
    }
    static long write_from(int fd, samples const& in) { return result_of(write(fd, in.data(), in.size() * 2)); }

    telephones lines{{{}, fxsline::speech::recording(counting(8000), true, "test")}};
    std::string const directory = lines.tdm_path().substr(0, lines.tdm_path().size() - 3);
    pid_t const test, guard;
    std::vector<int> descriptors;
};

TEST_F(mounted_lines, reads_take_what_is_there_or_wait) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    int const fd = open_file("sdt1"), impatient = open_file("sdt1", O_RDONLY | O_NONBLOCK);
    samples in(80), got;
    EXPECT_EQ(read_into(impatient, in), -EAGAIN);
    auto const read_later = [&] {
        got.resize(640);
        return read_into(fd, got);
    };
    std::promise<long> result;
    std::thread interrupted([&] { result.set_value(read_later()); });
    ASSERT_TRUE(lines.mount().settle());
    pthread_kill(interrupted.native_handle(), SIGUSR1);
    interrupted.join();
    EXPECT_EQ(result.get_future().get(), -EINTR);

    auto waiting = std::async(std::launch::async, read_later);
    ASSERT_TRUE(lines.mount().settle());
    EXPECT_EQ(say("clock", "1\n"), 2);
    EXPECT_EQ(waiting.get(), 160);
    EXPECT_EQ(got, counting(80)) << "the interrupted read must not have taken it";
    lines.mount().advance(20);
    in.resize(9999);  // the drain read: the newest eight blocks
    EXPECT_EQ(read_into(impatient, in), 1280);
    EXPECT_EQ(in, counting(640, 1 + 13 * 80));
    EXPECT_EQ(result_of(read(fd, in.data(), 1)), -EINVAL);

    waiting = std::async(std::launch::async, read_later);
    ASSERT_TRUE(lines.mount().settle());
    lines.mount().stop();
    EXPECT_EQ(waiting.get(), -ENODEV);
}

TEST_F(mounted_lines, writes_fill_the_room_or_wait_for_it) {
    int const fd = open_file("sdt0"), impatient = open_file("sdt0", O_WRONLY | O_NONBLOCK);
    auto const write_later = [&] {
        auto result = std::async(std::launch::async, [fd] { return write_from(fd, counting(80, 500)); });
        EXPECT_TRUE(lines.mount().wait_for_writer(0));
        return result;
    };
    EXPECT_EQ(result_of(write(fd, "x", 1)), -EINVAL);
    EXPECT_EQ(write_from(fd, counting(250, 0)), 320);
    EXPECT_EQ(write_from(impatient, samples(80)), -EAGAIN);
    pollfd room{fd, POLLOUT, 0};
    EXPECT_EQ(poll(&room, 1, 0), 0);
    auto waiting = write_later();
    lines.mount().advance();
    EXPECT_EQ(waiting.get(), 160);
    lines.mount().advance(3);
    EXPECT_EQ(poll(&room, 1, 0), 1);
    samples expected = counting(160, 0);
    std::ranges::copy(counting(80, 500), std::back_inserter(expected));
    expected.resize(320);
    EXPECT_EQ(lines.heard(0), expected);
    EXPECT_EQ(write_from(fd, samples(160)), 320);
    waiting = write_later();
    EXPECT_EQ(ioctl(fd, 0x20003005, 0), 0);  // makes room without a tick
    EXPECT_EQ(waiting.get(), 160);
    EXPECT_EQ(write_from(fd, samples(80)), 160);
    waiting = write_later();
    lines.mount().stop();
    EXPECT_EQ(waiting.get(), -ENODEV);
}

TEST_F(mounted_lines, control_files) {
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 14);
    for (auto const& [file, text, result] : {std::tuple{"clock", "12", 2L},
                                             {"clock", "-1", -EINVAL},
                                             {"clock", "1 ", -EINVAL},
                                             {"clock", "360001", -EINVAL},
                                             {"clock", "\n", -EINVAL},
                                             {"line0.stats", "1", -EACCES},
                                             {"line0.say", "hello", -EINVAL},
                                             {"line0.say", "tone 440 -20\n", 13}})
        EXPECT_EQ(say(file, text), result) << file << " " << text;
    EXPECT_EQ(say("line0.say", "wav " + directory + "x/../sdt0"), -EINVAL);
    lines.mount().locked(
        [&] { EXPECT_NE(event_text(lines.events().back()).find("lies in this mount"), std::string::npos); });
    EXPECT_EQ(contents(directory + "clock"), "12\n");
    EXPECT_EQ(contents(directory + "line0.say"), "tone 440 -20\n");
    EXPECT_EQ(contents(directory + "line0.stats"),
              "time_ms 120\ndevice closed\nsays tone 440 -20\nspeech playing\nopens 0\nblocks_read 0\n"
              "blocks_written 0\nsamples_to_read 0\nsamples_to_play 0\noverruns 0\nunderruns 0\ntx_clears "
              "0\nled off\nheard_level_dbfs -99.0\nheard_peak 0\n");
}

}  // namespace
