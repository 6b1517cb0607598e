#include "phone/line.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "tests/support/seed.h"

using namespace fxsphone;

namespace {

dial_plan const plan({{"1xx", "sip:{}@here"}, {"0.", "sip:{}@there"}, {"112", "sip:emergency@here"}, {"*9#", "star"}});

std::string text_of(std::vector<order> const& orders) {
    static constexpr char const* tones[] = {"none", "ringback", "busy", "congestion", "dial", "stutter"};
    static constexpr char const* kinds[] = {"open",   "tone",     "waiting", "ring",    "stop", "howl",
                                            "invite", "answer",   "refuse",  "decline", "end",  "hold",
                                            "resume", "transfer", "follow",  "connect", "send", "remember"};
    std::string text;
    for (order const& one : orders) {
        text += text.empty() ? "" : ", ";
        text += kinds[static_cast<int>(one.kind)] + std::to_string(one.leg);
        text += one.kind == order_kind::tone ? std::string(" ") + tones[static_cast<int>(one.sound)] : "";
        text += one.text.empty() ? "" : " " + one.text;
        text += one.anonymous ? " unnamed" : "";
    }
    return text;
}

/// "lift", "replace", "flash", "keys 123", "wait", or what happened to a leg: "rings 0", "answers 0", "invited 1", ...
std::vector<order> play(line& telephone, std::string const& step, std::int64_t now) {
    static std::pair<char const*, happening> const far_ends[] = {{"rings", happening::far_rings},
                                                                 {"answers", happening::far_answers},
                                                                 {"busy", happening::far_busy},
                                                                 {"fails", happening::far_fails},
                                                                 {"ends", happening::far_ends},
                                                                 {"invited", happening::invited},
                                                                 {"referred", happening::referred},
                                                                 {"transferred", happening::transferred},
                                                                 {"untransferred", happening::transfer_failed}};
    std::istringstream in(step);
    std::string what, more;
    in >> what >> more;
    if (what == "lift")
        return telephone.lift(now);
    if (what == "replace")
        return telephone.replace(now);
    std::vector<order> all;
    if (what == "flash") {
        all = telephone.replace(now);
        for (order& one : telephone.lift(now))
            all.push_back(std::move(one));
    }
    if (what == "keys")
        for (char const key : more)
            for (order& one : telephone.press(key, now))
                all.push_back(std::move(one));
    for (auto const& [name, happened] : far_ends)
        if (what == name)
            all = telephone.far(happened, std::stoi(more), now);
    return what == "wait" ? telephone.pass_time(now) : what == "restart" ? telephone.restart(now) : all;
}

struct step {
    std::int64_t at_ms;
    std::string input, orders;
};
struct course {
    std::string name;
    std::vector<step> steps;
};

std::vector<step> const talk = {{0, "lift", "open0, tone0 dial"},
                                {10, "keys 112", "tone0 none, invite0 sip:112@here"},
                                {20, "answers 0", "tone0 none"}};

/// After a call that came in was answered.
std::vector<step> answered(std::vector<step> steps) {
    steps.insert(steps.begin(), {{0, "invited 0", "ring0"}, {5, "lift", "stop0, answer0"}});
    return steps;
}

std::vector<course> const courses = {
    {"a call from dial tone to the end",
     {{0, "lift", "open0, tone0 dial"},
      {1000, "keys 1", "tone0 none"},
      {1500, "keys 2", ""},
      {2000, "keys 3", "invite0 sip:123@here"},
      {2100, "rings 0", "tone0 ringback"},
      {3000, "keys 5", "send0 5"},
      {9000, "answers 0", "tone0 none"},
      {9500, "keys 5", "send0 5"},
      {9900, "replace", ""},
      {10600, "wait", "end0"}}},
    {"nothing dialled",
     {{0, "lift", "open0, tone0 dial"},
      {15000, "wait", "tone0 congestion"},
      {45000, "wait", "tone0 none"},
      {99000, "replace", ""},
      {99700, "wait", "end0"}}},
    {"the time-out ends a number",
     {{0, "lift", "open0, tone0 dial"},
      {100, "keys 0123", "tone0 none"},
      {4099, "wait", ""},
      {4100, "wait", "invite0 sip:0123@there"}}},
    {"# ends a number", {{0, "lift", "open0, tone0 dial"}, {100, "keys 04#", "tone0 none, invite0 sip:04@there"}}},
    {"# in the plan", {{0, "lift", "open0, tone0 dial"}, {100, "keys *9#", "tone0 none, invite0 star"}}},
    {"half a number",
     {{0, "lift", "open0, tone0 dial"}, {100, "keys 12", "tone0 none"}, {4100, "wait", "tone0 congestion"}}},
    {"no such number", {{0, "lift", "open0, tone0 dial"}, {100, "keys 7", "tone0 none, tone0 congestion"}}},
    {"busy",
     {{0, "lift", "open0, tone0 dial"},
      {9, "keys 100", "tone0 none, invite0 sip:100@here"},
      {20, "busy 0", "tone0 busy"},
      {50, "replace", ""},
      {60, "lift", "end0, open0, tone0 dial"}}},
    {"hung up before the answer",
     {{0, "lift", "open0, tone0 dial"},
      {9, "keys 100", "tone0 none, invite0 sip:100@here"},
      {10, "rings 0", "tone0 ringback"},
      {50, "replace", "end0"},
      {60, "answers 0", ""}}},
    {"a call comes in",
     {{0, "invited 0", "ring0"},
      {500, "lift", "stop0, answer0"},
      {900, "ends 0", "tone0 busy"},
      {950, "replace", ""},
      {1700, "wait", "end0"}}},
    {"the caller gives up",
     {{0, "invited 0", "ring0"}, {500, "ends 0", "stop0, end0"}, {900, "lift", "open0, tone0 dial"}}},
    {"nobody answers", {{0, "invited 0", "ring0"}, {180000, "wait", "stop0, refuse0, end0"}}},
    {"an answer and a second lift", {{0, "invited 0", "ring0"}, {5, "lift", "stop0, answer0"}, {6, "lift", ""}}},
    {"call waiting, taken by a flash, then swapped by one with a key", answered({{100, "invited 1", "waiting1"},
                                                                                 {4100, "wait", "waiting1"},
                                                                                 {5000, "replace", ""},
                                                                                 {5200, "lift", ""},
                                                                                 {6699, "wait", ""},
                                                                                 {6700, "wait", "hold0, answer1"},
                                                                                 {7000, "flash", ""},
                                                                                 {7200, "keys 2", "hold1, resume0"},
                                                                                 {7300, "ends 1", "end1"},
                                                                                 {7400, "keys 4", "send0 4"}})},
    {"call waiting, refused; taken instead of the first", answered({{100, "invited 1", "waiting1"},
                                                                    {200, "flash", ""},
                                                                    {300, "keys 0", "decline1, end1"},
                                                                    {400, "invited 1", "waiting1"},
                                                                    {500, "flash", ""},
                                                                    {600, "keys 1", "end0, answer1"}})},
    {"call waiting, first call ended", answered({{100, "invited 1", "waiting1"},
                                                 {200, "replace", ""},
                                                 {900, "wait", "end0, ring1"},
                                                 {999, "lift", "stop1, answer1"}})},
    {"call waiting, the caller gives up",
     answered({{100, "invited 1", "waiting1"}, {200, "ends 1", "end1"}, {9000, "wait", ""}})},
    {"call waiting, the first party hangs up", answered({{100, "invited 1", "waiting1"},
                                                         {200, "ends 0", "tone0 busy"},
                                                         {300, "replace", ""},
                                                         {400, "lift", "end0, answer1"}})},
    {"hold, consult, back", answered({{100, "replace", ""},
                                      {300, "lift", "hold0, open1, tone1 dial"},
                                      {400, "keys 100", "tone1 none, invite1 sip:100@here"},
                                      {500, "busy 1", "tone1 busy"},
                                      {600, "replace", ""},
                                      {700, "lift", "end1, resume0"}})},
    {"a conference, private talk in it, and its end by one of the far ends",
     answered({{100, "flash", "hold0, open1, tone1 dial"},
               {200, "keys 100", "tone1 none, invite1 sip:100@here"},
               {300, "rings 1", "tone1 ringback"},
               {310, "flash", ""},
               {320, "keys 3", ""},
               {400, "answers 1", "tone1 none"},
               {500, "flash", ""},
               {600, "keys 3", "resume0"},
               {700, "keys 7", "send1 7, send0 7"},
               {800, "flash", ""},
               {900, "keys 2", "hold0"},
               {1000, "flash", ""},
               {1100, "keys 3", "resume0"},
               {1200, "ends 1", "end1"},
               {1300, "keys 8", "send0 8"}})},
    {"a conference ends with the receiver replaced", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                                               {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                                               {400, "answers 1", "tone1 none"},
                                                               {500, "flash", ""},
                                                               {600, "keys 3", "resume0"},
                                                               {700, "replace", ""},
                                                               {1400, "wait", "end1, end0"}})},
    {"ringing back: a call was on hold", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                                   {200, "replace", ""},
                                                   {900, "wait", "end1, ring0"},
                                                   {1000, "lift", "stop0, resume0"},
                                                   {1100, "flash", "hold0, open1, tone1 dial"},
                                                   {1200, "replace", ""},
                                                   {1900, "wait", "end1, ring0"},
                                                   {2000, "ends 0", "stop0, end0"}})},
    {"transfer with a key, attended", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                                {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                                {400, "answers 1", "tone1 none"},
                                                {500, "flash", ""},
                                                {600, "keys 4", "hold1, transfer0"},
                                                {700, "ends 1", "end1"},
                                                {800, "transferred 0", "end0, open0, tone0 dial"}})},
    {"transfer by replacing the receiver, attended", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                                               {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                                               {400, "answers 1", "tone1 none"},
                                                               {500, "replace", ""},
                                                               {1200, "wait", "hold1, transfer0"},
                                                               {1300, "transferred 0", "end1, end0"}})},
    {"transfer that fails, attended", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                                {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                                {400, "answers 1", "tone1 none"},
                                                {500, "flash", ""},
                                                {600, "keys 4", "hold1, transfer0"},
                                                {700, "untransferred 0", "resume1"},
                                                {800, "replace", ""},
                                                {1500, "wait", "hold1, transfer0"},
                                                {1600, "untransferred 0", "end1, ring0"},
                                                {1700, "lift", "stop0, resume0"}})},
    {"transfer before the answer, and nobody reports of it",
     answered({{100, "flash", "hold0, open1, tone1 dial"},
               {200, "keys 100", "tone1 none, invite1 sip:100@here"},
               {300, "rings 1", "tone1 ringback"},
               {400, "replace", ""},
               {1100, "wait", "end1, transfer0 sip:100@here"},
               {61099, "wait", ""},
               {61100, "wait", "ring0"}})},
    {"transfer before the answer, with a key, and the far end goes",
     answered({{100, "flash", "hold0, open1, tone1 dial"},
               {200, "keys 100", "tone1 none, invite1 sip:100@here"},
               {300, "rings 1", "tone1 ringback"},
               {400, "flash", ""},
               {500, "keys 4", "end1, transfer0 sip:100@here"},
               {600, "ends 0", "end0, open0, tone0 dial"}})},
    {"transfer thought better of", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                             {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                             {400, "answers 1", "tone1 none"},
                                             {500, "replace", ""},
                                             {1200, "wait", "hold1, transfer0"},
                                             {1300, "lift", "resume0"},
                                             {1400, "transferred 0", "tone0 busy"},
                                             {1500, "ends 1", "end1"}})},
    {"transfer of a conference", answered({{100, "flash", "hold0, open1, tone1 dial"},
                                           {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                           {400, "answers 1", "tone1 none"},
                                           {500, "flash", ""},
                                           {600, "keys 3", "resume0"},
                                           {700, "flash", ""},
                                           {800, "keys 4", "hold1, hold0, transfer0"}})},
    {"transfer with a code, which fails; without anybody to transfer",
     answered({{100, "flash", "hold0, open1, tone1 dial"},
               {200, "keys *98*100", "tone1 none, end1, transfer0 sip:100@here"},
               {300, "untransferred 0", "resume0"},
               {400, "ends 0", "tone0 busy"},
               {500, "flash", "end0, open0, tone0 dial"},
               {600, "keys *98*100", "tone0 none, tone0 congestion"}})},
    {"sent on to somebody else", answered({{100, "referred 0", "follow1"},
                                           {200, "rings 1", ""},
                                           {300, "answers 1", "end0, connect1"},
                                           {400, "keys 5", "send1 5"}})},
    {"sent on, and left alone meanwhile", answered({{100, "referred 0", "follow1"},
                                                    {200, "ends 0", "end0, connect1, tone1 ringback"},
                                                    {300, "answers 1", "tone1 none"}})},
    {"sent on to somebody who does not answer",
     answered({{100, "referred 0", "follow1"}, {200, "busy 1", "end1"}, {300, "keys 5", "send0 5"}})},
    {"the held party hangs up", answered({{100, "replace", ""},
                                          {300, "lift", "hold0, open1, tone1 dial"},
                                          {400, "ends 0", "end0"},
                                          {500, "replace", "end1"}})},
    {"the media process starts anew",
     answered({{100, "restart", "end0, end1, open0, tone0 dial"}, {200, "replace", "end0"}})},
};

std::vector<feature_code> const codes = {
    {"*21*", feature::forward_always}, {"*67*", feature::forward_busy},   {"*61*", feature::forward_no_answer},
    {"#21#", feature::forward_off},    {"*26#", feature::do_not_disturb}, {"#26#", feature::do_not_disturb_off},
    {"*69", feature::call_back},       {"*31*", feature::hide_number},    {"*66", feature::redial},
    {"*98*", feature::transfer}};

TEST(phone_line, knows_the_codes_of_its_owner) {
    line telephone(plan, {.codes = codes});
    std::int64_t now = 0;
    auto const dial = [&](std::string const& keys) {
        play(telephone, "lift", now += 1000);
        std::string const orders = text_of(play(telephone, "keys " + keys, now += 1000));
        play(telephone, "replace", now += 1000);
        play(telephone, "wait", now += 1000);
        return orders;
    };
    std::string const done = "tone0 none, remember0, tone0 stutter";
    EXPECT_EQ(dial("*69"), "tone0 none, tone0 congestion") << "nobody has called";
    telephone.called_by("sip:7@there");
    EXPECT_EQ(dial("*69"), "tone0 none, invite0 sip:7@there");
    EXPECT_EQ(dial("*31*100"), "tone0 none, invite0 sip:100@here unnamed");
    EXPECT_EQ(dial("*66"), "tone0 none, invite0 sip:100@here");
    EXPECT_EQ(dial("100"), "tone0 none, invite0 sip:100@here");
    EXPECT_EQ(dial("*9#"), "tone0 none, invite0 star") << "what begins like a code";
    EXPECT_EQ(dial("*26#"), done);
    EXPECT_EQ(telephone.free_leg(), std::nullopt);
    EXPECT_EQ(dial("#26#"), done);
    EXPECT_EQ(telephone.free_leg(), 0);
    EXPECT_EQ(dial("*21*055#"), done);
    EXPECT_EQ(telephone.forward_to(), "sip:055@there");
    EXPECT_EQ(dial("*21*7"), "tone0 none, tone0 congestion") << "no such number";
    EXPECT_EQ(dial("#21#"), done);
    EXPECT_EQ(telephone.forward_to(), "");
    EXPECT_EQ(dial("*67*100"), done);
    EXPECT_EQ(telephone.forward_to(), "");
    play(telephone, "lift", now);
    EXPECT_EQ(telephone.forward_to(), "sip:100@here");
    play(telephone, "replace", now);
    play(telephone, "wait", now += 1000);
    EXPECT_EQ(dial("*61*100"), done);
    play(telephone, "invited 0", now);
    EXPECT_EQ(text_of(play(telephone, "wait", now + 20'000)), "stop0, refuse0 sip:100@here, end0");
}

TEST(phone_line, howls_when_the_receiver_is_left_off) {
    line telephone(plan, {.first_key_ms = 10, .tone_ms = 20, .howl_ms = 30});
    std::string all;
    for (auto const& [input, at] :
         {std::pair{"lift", 0}, {"wait", 10}, {"wait", 30}, {"wait", 59}, {"wait", 60}, {"replace", 70}})
        all += text_of(play(telephone, input, at)) + "; ";
    EXPECT_EQ(all, "open0, tone0 dial; tone0 congestion; tone0 none; ; howl0; stop0, end0; ");
}

TEST(phone_line, calls_the_hot_line_and_tells_of_messages) {
    line hot(plan, {.hot_line = "sip:porter@here", .hot_line_ms = 3000});
    EXPECT_EQ(text_of(play(hot, "lift", 0)), "open0, tone0 dial");
    EXPECT_EQ(text_of(play(hot, "wait", 2999)), "");
    EXPECT_EQ(text_of(play(hot, "wait", 3000)), "tone0 none, invite0 sip:porter@here");
    line warm(plan, {.hot_line = "sip:porter@here", .hot_line_ms = 3000});
    warm.message_waits(true);
    EXPECT_EQ(text_of(play(warm, "lift", 0)), "open0, tone0 stutter");
    EXPECT_EQ(text_of(play(warm, "keys 100", 2999)), "tone0 none, invite0 sip:100@here");
}

TEST(phone_line, knows_other_uses_of_the_hook_flash) {
    std::vector<step> const second_call = {{0, "invited 0", "ring0"},
                                           {5, "lift", "stop0, answer0"},
                                           {100, "flash", "hold0, open1, tone1 dial"},
                                           {200, "keys 100", "tone1 none, invite1 sip:100@here"},
                                           {400, "answers 1", "tone1 none"}};
    for (auto const& [use, then] :
         {std::pair{flash_use::swap, std::vector<std::string>{"hold1, resume0", "hold0, resume1"}},
          {flash_use::conference, {"resume0", "end1", "hold0, open1, tone1 dial"}}}) {
        line telephone(plan, {.flash = use});
        for (step const& now : second_call)
            EXPECT_EQ(text_of(play(telephone, now.input, now.at_ms)), now.orders) << now.input;
        std::int64_t now = 500;
        for (std::string const& orders : then)
            EXPECT_EQ(text_of(play(telephone, "flash", now += 100)), orders);
    }
}

TEST(phone_line, follows_each_course) {
    for (course const& one : courses) {
        line telephone(plan, {.codes = codes});
        for (step const& now : one.steps)
            EXPECT_EQ(text_of(play(telephone, now.input, now.at_ms)), now.orders) << one.name << ", " << now.input;
    }
}

/// Counts what the orders leave behind: an order must fit its leg, whom one talks to is on the line and nobody else,
/// and the hook on its rest leaves nothing.
struct ledger {
    bool channel[2] = {}, on_line[2] = {}, ringing = false;

    void keep(std::vector<order> const& orders, line const& telephone) {
        for (order const& one : orders) {
            bool& has = channel[one.leg];
            bool const opens = one.kind == order_kind::open || one.kind == order_kind::follow;
            if (opens) {
                EXPECT_FALSE(has) << text_of(orders);
            }
            bool const ends = one.kind == order_kind::hang_up;
            has = !ends && (has || opens);
            if (!ends && one.kind != order_kind::stop_ringing) {
                EXPECT_TRUE(has) << text_of(orders);
            }
            if (one.kind == order_kind::open || one.kind == order_kind::answer || one.kind == order_kind::resume ||
                one.kind == order_kind::connect)
                on_line[one.leg] = true;
            if (ends || one.kind == order_kind::hold)
                on_line[one.leg] = false;
            ringing = one.kind == order_kind::ring || (ringing && one.kind != order_kind::stop_ringing);
        }
        judge(telephone, text_of(orders));
    }

    void judge(line const& telephone, std::string const& orders) const {
        EXPECT_EQ(ringing, telephone.rings());
        auto const now = telephone.now_in();
        bool const two = telephone.beside() != line::second::none;
        int const front = telephone.front_leg();
        if (now == line::state::on_hook) {
            EXPECT_FALSE(channel[0] || channel[1]) << orders;
        }
        bool const pending = now == line::state::transferring || now == line::state::handing_over;
        EXPECT_EQ(channel[1 - front], two) << orders;
        EXPECT_EQ(on_line[front], now != line::state::on_hook && !telephone.rings() && !pending) << orders;
        EXPECT_EQ(on_line[1 - front], telephone.beside() == line::second::joined) << orders;
    }
};

void live_an_hour(dice& chance) {
    line telephone(plan, {.codes = codes});
    ledger books;
    static std::string const inputs[] = {
        "lift",          "lift",          "keys 100",        "keys 100",        "answers 0",
        "answers 1",     "flash",         "replace",         "flash",           "flash",
        "keys 1",        "keys 0",        "keys 12",         "keys 3",          "keys 4",
        "keys 2",        "wait",          "rings 0",         "rings 1",         "busy 0",
        "answers 0",     "answers 1",     "fails 1",         "ends 0",          "ends 1",
        "transferred 0", "transferred 1", "untransferred 0", "untransferred 1", "keys *98*100"};
    std::set<std::pair<line::state, line::second>> seen;
    for (std::int64_t now = 1; now < 3'600'000; now += chance.below(900)) {
        if (auto const free = telephone.free_leg(); free && chance.chance(25)) {
            books.channel[*free] = true;  // its owner opens it before the line is told
            books.keep(telephone.far(happening::invited, *free, now), telephone);
        }
        if (int const leg = telephone.front_leg(); telephone.can_follow(leg) && chance.chance(10))
            books.keep(telephone.far(happening::referred, leg, now), telephone);
        bool const restarts = chance.below(500) == 0;
        std::string const input = restarts ? "restart" : inputs[chance.below(static_cast<int>(std::size(inputs)))];
        books.keep(play(telephone, input, now), telephone);
        seen.emplace(telephone.now_in(), telephone.beside());
        ASSERT_FALSE(testing::Test::HasFailure()) << input << " at " << now;
    }
    EXPECT_GE(seen.size(), 15u) << "hardly anything happened";
}

TEST(phone_line, leaves_no_channel_after_an_hour_of_anything) {
    seed_range{1, 10}.roll(live_an_hour);
}

}  // namespace
