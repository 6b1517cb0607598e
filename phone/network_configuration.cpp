#include "phone/network_configuration.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "phone/session_description.h"

namespace fxsphone {

namespace {

constexpr char const* transports[] = {"udp", "tcp", "tls"};

/// Complains about a key that asks for TLS where it was left out of the build.
void need_tls(section& one, char const* key) {
    if (!FXSPHONE_TLS)
        complain(*one.find(key), "this fxsphone was built without TLS");
}

/// "host", "host:port" or "[address]:port".
void host(section& one, char const* key, std::string& value) {
    one.text(key, value);
    if (toml::node const* const node = one.find(key); node != nullptr)
        if (value.empty() || value.starts_with("sip:") || value.find_first_of(" ;@<>\"\\/") != std::string::npos)
            complain(*node, "'" + std::string(key) + "' is to be a host or host:port");
}

registrar_settings read_registrar(toml::node const& node, std::string const& instance) {
    section one(table_in(node, "[[registrar]]"), "[[registrar]]");
    registrar_settings read;
    one.needed("name");
    one.text("name", read.name);
    one.needed("domain");
    host(one, "domain", read.domain);
    host(one, "proxy", read.proxy);
    one.text("transport", read.transport);
    if (!read.transport.empty() && std::ranges::count(transports, read.transport) == 0)
        complain(*one.find("transport"), "'" + read.transport + "' is none of udp, tcp, tls");
    if (read.transport == "tls")
        need_tls(one, "transport");
    one.number("expires_s", read.expires_s, 60, 86'400);
    one.number("keep_alive_s", read.keep_alive_s, 0, 3600);
    one.yes_or_no("outbound", read.outbound);
    if (read.outbound && instance.empty())
        complain(*one.find("outbound"), "'outbound' needs 'instance' in [sip]");
    one.nothing_else();
    return read;
}

std::string first_line_of(toml::node const& node, std::string const& file) {
    std::ifstream in(file);
    std::string line;
    if (!std::getline(in, line))
        complain(node, "no password can be read from '" + file + "'");
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

std::string of_environment(toml::node const& node, std::string const& name) {
    char const* const value = std::getenv(name.c_str());
    if (value == nullptr || *value == '\0')
        complain(node, "the environment has no '" + name + "'");
    return value;
}

void read_password(section& line, std::string& password) {
    toml::node const* found = nullptr;
    for (char const* key : {"password", "password_file", "password_env"}) {
        toml::node const* const node = line.find(key);
        if (node == nullptr)
            continue;
        if (found != nullptr)
            complain(*node, "one of password, password_file and password_env is enough");
        found = node;
        line.text(key, password);
        if (key == std::string("password_file"))
            password = first_line_of(*node, password);
        if (key == std::string("password_env"))
            password = of_environment(*node, password);
    }
}

}  // namespace

std::vector<registrar_settings> read_registrars(section& whole, std::string const& instance) {
    std::vector<registrar_settings> all;
    whole.list("registrar", [&](toml::node const& node) {
        registrar_settings const read = read_registrar(node, instance);
        if (std::ranges::any_of(all, [&](auto const& other) { return other.name == read.name; }))
            complain(node, "there is a registrar '" + read.name + "' already");
        all.push_back(read);
    });
    return all;
}

void read_media(section& line, telephone_settings& one) {
    std::string word = "off";
    line.text("srtp", word);
    if (word != "off" && word != "optional" && word != "required")
        complain(*line.find("srtp"), "'srtp' is to be \"off\", \"optional\" or \"required\"");
    one.srtp = word == "off" ? srtp_use::off : word == "optional" ? srtp_use::optional : srtp_use::required;
    if (line.find("xr") != nullptr)
        one.xr.clear();
    line.list("xr", [&](toml::node const& node) {
        one.xr.push_back(section::string_in(node, "xr"));
        if (!session_description::knows_xr(one.xr.back()))
            complain(node, "'" + one.xr.back() +
                               "' is none of pkt-loss-rle, pkt-dup-rle, pkt-rcpt-times, rcvr-rtt, stat-summary, "
                               "voip-metrics");
    });
}

void read_network(section& network, phone_settings& settings) {
    host(network, "stun", settings.stun);
}

void read_tls(section& tls, tls_settings& chosen) {
    tls.number("port", chosen.port, 1, 65535);
    tls.yes_or_no("verify", chosen.verify);
    for (auto const& [key, file] : {std::pair{"ca_file", &chosen.ca_file}, {"certificate", &chosen.certificate}}) {
        tls.text(key, *file);
        if (!file->empty() && !std::ifstream(*file))
            complain(*tls.find(key), "'" + *file + "' can't be read");
    }
    if (!chosen.certificate.empty())
        need_tls(tls, "certificate");
}

void read_login(section& line, std::vector<registrar_settings> const& registrars, telephone_settings& one) {
    std::string name;
    line.text("registrar", name);
    one.login.user = one.user;
    line.text("auth_user", one.login.user);
    read_password(line, one.login.password);
    if (name.empty())
        return;
    auto const found = std::ranges::find_if(registrars, [&](auto const& other) { return other.name == name; });
    if (found == registrars.end())
        complain(*line.find("registrar"), "there is no registrar '" + name + "'");
    one.registrar = *found;
}

}  // namespace fxsphone
