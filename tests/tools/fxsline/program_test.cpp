// The program as a user runs it: options, events on standard output, recordings, exit status, a dead mount.
#include <gtest/gtest.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "tests/tools/fxsline/fixtures.h"

namespace {

using json = nlohmann::json;

TEST(Program, RecordsBothWaysOnOneTimeAxisAndReportsEvents) {
    temporary_directory const directory, mount;
    child program =
        start_fxsline({mount.path(""), "--stepped", "--json", "--tone", "1=1000,-6", "--delay", "1=20",
                       "--hear", "1=" + directory.path("heard"), "--said", "1=" + directory.path("said")});
    EXPECT_EQ(json::parse(program.line())["event"], "serving");
    write_text(mount.path("clock"), "1");
    int const device = open(mount.path("sdt1").c_str(), O_RDWR | O_CLOEXEC);
    for (int tick = 0; tick < 5; tick++) {
        char block[160];
        write_text(mount.path("clock"), "1\n");
        EXPECT_EQ(read(device, block, sizeof block), 160);
        EXPECT_EQ(write(device, block, sizeof block), 160);
    }
    close(device);
    for (auto const& [event, time_ms] : {std::pair{"device_opened", 10}, {"device_closed", 60}})
        EXPECT_EQ(json::parse(program.line()), (json{{"time_ms", time_ms}, {"line", 1}, {"event", event}}));
    write_text(mount.path("clock"), "2");
    EXPECT_EQ(program.end(SIGTERM), 0);
    json const totals = json::parse(program.line());
    EXPECT_TRUE(totals["blocks_read"] == 5 && totals["blocks_written"] == 5) << totals;
    EXPECT_TRUE(std::filesystem::is_empty(mount.path("")));
    std::string const said = contents(directory.path("said")).substr(44);
    std::string const heard = contents(directory.path("heard")).substr(44), quiet(160, '\0');
    EXPECT_EQ(said.size(), 8 * 160U);
    EXPECT_EQ(said.substr(0, 3 * 160), quiet + quiet + quiet);
    EXPECT_NE(said.substr(3 * 160, 160), quiet);
    EXPECT_TRUE(heard.substr(160) == said.substr(0, 6 * 160) + quiet);
}

TEST(Program, TakesOverTheMountOfAKilledRunButNotOfALivingOne) {
    temporary_directory const directory;
    child killed = start_fxsline({directory.path("")});
    EXPECT_TRUE(killed.line().starts_with("serving "));
    EXPECT_EQ(start_fxsline({directory.path("")}).wait(), 3);
    killed.end(SIGKILL);
    std::error_code error;
    EXPECT_FALSE(std::filesystem::exists(directory.path("sdt0"), error));
    ASSERT_EQ(error.value(), ENOTCONN);
    child next = start_fxsline({directory.path("")});
    EXPECT_TRUE(next.line().starts_with("serving "));
    EXPECT_EQ(next.end(SIGINT), 0);
}

TEST(Program, SaysWhyItCanNotRun) {
    temporary_directory const directory;
    std::string const script = directory.path("script");
    std::ofstream(script) << "10 a\nb\n";
    struct {
        std::vector<std::string> arguments;
        int status;
        std::string text;
    } const cases[] = {
        {{"x", "--tone", "4=440,-20"}, 1, "N from 0 to 3"},
        {{"x", "--say", "0=/nonexistent"}, 1, "can't open the file /nonexistent"},
        {{"x", "--loop", "2"}, 1, "--loop 2 needs --say 2"},
        {{"x", "--delay", "0=-5"}, 1, "'-5' is not a number"},
        {{"x", "--hook", "0=5"}, 1, "need --pipe"},
        {{"x", "--pipe", "y", "--hook", "0=5,x"}, 1, "'x' is not a number"},
        {{"x", "--pipe", "y", "--pipe-script", directory.path("")}, 1, "is actually a directory"},
        {{"x", "--pipe", "y", "--pipe-script", script}, 1, "row 2 is not 'MS TEXT': b"},
        {{"/nonexistent"}, 3, "can't mount on /nonexistent"},
        {{FXSLINE_PROGRAM}, 3, "no directory"},
        {{directory.path(""), "--hear", "0=/nonexistent/heard.wav"}, 4, "can't write /nonexistent"},
        {{directory.path(""), "--pipe", "/nonexistent/p"}, 5, "can't create the pipe /nonexistent/p0"},
        {{directory.path(""), "--signal", script}, 5, "can't create the link"}};
    for (auto const& c : cases) {
        child program = start_fxsline(c.arguments);
        EXPECT_EQ(program.wait(), c.status) << c.text;
        EXPECT_NE(program.err.find(c.text), std::string::npos) << c.text << ": " << program.err;
    }
    EXPECT_EQ(contents(script), "10 a\nb\n") << "no link may replace a file";
}

}  // namespace
