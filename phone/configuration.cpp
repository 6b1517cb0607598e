#include "phone/configuration.h"

#include <algorithm>

#include "phone/configuration_section.h"
#include "phone/network_configuration.h"
#include "phone/session_description.h"
#include "phone/session_timer.h"

namespace fxsphone {

namespace {

void read_address(section& where, char const* key, std::string& address) {
    where.text(key, address);
    if (!address.empty() && !address.starts_with("sip:") && !address.starts_with("sips:"))
        complain(*where.find(key), "'" + std::string(key) + "' is to be an address that begins with sip: or sips:");
}

void read_codes(section& codes, phone_settings& settings) {
    constexpr std::pair<char const*, feature> known[] = {
        {"forward_always", feature::forward_always},
        {"forward_busy", feature::forward_busy},
        {"forward_no_answer", feature::forward_no_answer},
        {"forward_off", feature::forward_off},
        {"do_not_disturb", feature::do_not_disturb},
        {"do_not_disturb_off", feature::do_not_disturb_off},
        {"call_back", feature::call_back},
        {"redial", feature::redial},
        {"hide_number", feature::hide_number},
        {"transfer", feature::transfer},
    };
    for (auto const& [key, what] : known) {
        feature_code one{"", what};
        codes.text(key, one.keys);
        if (codes.find(key) == nullptr)
            continue;
        if (one.keys.empty() || one.keys.find_first_not_of("0123456789*#") != one.keys.npos)
            complain(*codes.find(key), "'" + std::string(key) + "' is to be made of the keys 0 to 9, * and #");
        if (std::ranges::count(settings.times.codes, one.keys, &feature_code::keys) != 0)
            complain(*codes.find(key), "'" + one.keys + "' has a meaning already");
        settings.times.codes.push_back(std::move(one));
    }
}

void read_dial(section& dial, phone_settings& settings) {
    dial.number("first_key_ms", settings.times.first_key_ms, 1000, 120'000);
    dial.number("next_key_ms", settings.times.next_key_ms, 500, 60'000);
    dial.list("plan", [&](toml::node const& node) {
        section row(table_in(node, "a row of the plan"), "a row of the plan");
        dial_rule rule;
        toml::node const& keys = row.needed("keys");
        rule.pattern = section::string_in(keys, "keys");
        if (std::string const problem = dial_plan::problem(rule); !problem.empty())
            complain(keys, problem);
        toml::node const& call = row.needed("call");
        rule.destination = section::string_in(call, "call");
        if (!rule.destination.starts_with("sip:") && !rule.destination.starts_with("sips:"))
            complain(call, "'call' is to be an address that begins with sip: or sips:");
        row.nothing_else();
        settings.plan.push_back(std::move(rule));
    });
}

void read_codecs(section& line, telephone_settings& one) {
    if (line.find("codecs") != nullptr)
        one.codecs.clear();
    line.list("codecs", [&](toml::node const& node) {
        one.codecs.push_back(section::string_in(node, "codecs"));
        if (!session_description::knows(one.codecs.back()))
            complain(node, "'" + one.codecs.back() + "' is none of pcmu, pcma, g729, gsm, g722, g726");
    });
}

void read_line(toml::node const& node, std::vector<registrar_settings> const& registrars, phone_settings& settings) {
    section line(table_in(node, "[[line]]"), "[[line]]");
    telephone_settings one;
    toml::node const& number = line.needed("number");
    line.number("number", one.number, 0, 3);
    toml::node const& user = line.needed("user");
    line.text("user", one.user);
    if (one.user.empty() || one.user.find_first_of(" @:<>\"") != std::string::npos)
        complain(user, "'user' is the part of a SIP address before the @");
    line.text("name", one.display_name);
    line.number("ptime_ms", one.ptime_ms, 10, 60);
    line.choice("keys", one.keys,
                {{"events", key_transport::events},
                 {"tones", key_transport::tones},
                 {"info", key_transport::info},
                 {"none", key_transport::none}});
    line.yes_or_no("hide_number", one.hide_number);
    read_address(line, "hot_line", one.hot_line);
    line.number("hot_line_ms", one.hot_line_ms, 0, 60'000);
    read_address(line, "mailbox", one.mailbox);
    read_codecs(line, one);
    read_login(line, registrars, one);
    read_media(line, one);
    line.nothing_else();
    for (telephone_settings const& other : settings.telephones) {
        if (other.number == one.number)
            complain(number, "there is a line " + std::to_string(one.number) + " already");
        if (other.user == one.user)
            complain(user, "there is a line of user '" + one.user + "' already");
    }
    settings.telephones.push_back(std::move(one));
}

void read_ring(section& ring, phone_settings& settings) {
    std::string country;
    ring.text("country", country);
    if (ring.find("country") != nullptr) {
        auto const known = cadence_of_country(country);
        if (!known)
            complain(*ring.find("country"), "the cadence of '" + country + "' is not known, 'cadence' takes any");
        settings.cadence = *known;
    }
    if (ring.find("cadence") != nullptr)
        settings.cadence.clear();
    ring.list("cadence", [&](toml::node const& node) {
        auto const time_ms = node.value<int>().value_or(0);
        if (!node.is_integer() || time_ms < 50 || time_ms > 10'000 || settings.cadence.size() == 8)
            complain(node, "'cadence' is to be up to 8 numbers from 50 to 10000");
        settings.cadence.push_back(time_ms);
    });
}

void read_tones(section& tones, phone_settings& settings) {
    tones.number("set", settings.tone_set, 1, 16);
    tones.number("longest_ms", settings.times.tone_ms, 1000, 600'000);
}

constexpr int shortest_media_timeout_ms = 10'000;  // two of the process's RTCP intervals

void read_calls(section& calls, phone_settings& settings) {
    calls.yes_or_no("waiting", settings.times.call_waiting);
    calls.number("no_answer_ms", settings.times.no_answer_ms, 5000, 600'000);
    calls.choice("flash", settings.times.flash,
                 {{"keys", flash_use::keys}, {"swap", flash_use::swap}, {"conference", flash_use::conference}});
    calls.number("forward_ms", settings.times.forward_ms, 1000, 600'000);
    calls.text("state", settings.state_file);
    calls.number("session_expires_s", settings.session_expires_s, 0, 86'400);
    if (settings.session_expires_s != 0 && settings.session_expires_s < static_cast<int>(session_timer::least_s))
        complain(*calls.find("session_expires_s"), "'session_expires_s' is to be 0 or at least 90 (RFC 4028)");
    calls.number("media_timeout_ms", settings.media_timeout_ms, 0, 600'000);
    if (settings.media_timeout_ms != 0 && settings.media_timeout_ms < shortest_media_timeout_ms)
        complain(*calls.find("media_timeout_ms"),
                 "'media_timeout_ms' is to be 0 or at least 10000: the process reports every 5 s");
    calls.yes_or_no("media_timeout_ends", settings.media_timeout_ends);
    calls.yes_or_no("transfer", settings.times.transfer);
    calls.number("flash_key_ms", settings.times.flash_key_ms, 500, 10'000);
}

phone_settings read_all(toml::table const& file) {
    phone_settings settings;
    section whole(file, "the configuration");
    in_section(whole, "process", [&](section& one) {
        one.needed("port");
        one.number("port", settings.process_port, 1, 65535);
    });
    in_section(whole, "sip", [&](section& one) {
        one.text("ip", settings.sip_ip);
        one.number("port", settings.sip_port, 1, 65535);
        one.text("domain", settings.domain);
        one.text("instance", settings.instance);
        if (!fxsmedia::endpoint::from_text(settings.sip_ip.c_str(), 0))
            complain(*one.find("ip"), "'" + settings.sip_ip + "' is no IP address");
        one.text("ip6", settings.sip_ip6);
        auto const six = fxsmedia::endpoint::from_text(settings.sip_ip6.c_str(), 0);
        if (one.find("ip6") != nullptr && (!six || six->ip_bytes != 16))
            complain(*one.find("ip6"), "'" + settings.sip_ip6 + "' is no IPv6 address");
    });
    in_section(whole, "network", [&](section& one) { read_network(one, settings); });
    in_section(whole, "tls", [&](section& one) { read_tls(one, settings.tls); });
    in_section(whole, "driver", [&](section& one) {
        one.text("ring", settings.ring_device);
        one.yes_or_no("led", settings.led);
        one.number("howl_ms", settings.times.howl_ms, 0, 600'000);
        one.number("flash_ms", settings.times.flash_ms, 0, 2000);
    });
    in_section(whole, "ring", [&](section& one) { read_ring(one, settings); });
    in_section(whole, "status", [&](section& one) { one.text("socket", settings.status_socket); });
    in_section(whole, "tones", [&](section& one) { read_tones(one, settings); });
    in_section(whole, "calls", [&](section& one) { read_calls(one, settings); });
    in_section(whole, "codes", [&](section& one) { read_codes(one, settings); });
    in_section(whole, "dial", [&](section& one) { read_dial(one, settings); });
    whole.needed("process");
    whole.needed("line");
    auto const registrars = read_registrars(whole, settings.instance);
    whole.list("line", [&](toml::node const& node) { read_line(node, registrars, settings); });
    whole.nothing_else();
    return settings;
}

std::string placed(std::string const& name, toml::source_position where, std::string_view text) {
    return name + ":" + std::to_string(where.line) + ":" + std::to_string(where.column) + ": " + std::string(text);
}

}  // namespace

configuration read_configuration(std::string_view text, std::string const& name) {
    try {
        return {read_all(toml::parse(text, name)), {}};
    } catch (toml::parse_error const& error) {
        return {std::nullopt, placed(name, error.source().begin, error.description())};
    } catch (complaint const& found) {
        return {std::nullopt, placed(name, found.where, found.text)};
    }
}

}  // namespace fxsphone
