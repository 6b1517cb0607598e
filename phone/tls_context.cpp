#include "phone/tls_context.h"

#include "phone/libre.h"

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace fxsphone {

struct tls_context::handlers {
    static bool is_for(X509* shown, std::string const& host) {
        return X509_check_host(shown, host.data(), host.size(), 0, nullptr) == 1 ||
               X509_check_ip_asc(shown, host.c_str(), 0) == 1;
    }
    static int verify(X509_STORE_CTX* chain, void* arg) {
        auto const& hosts = static_cast<tls_context*>(arg)->accepted;
        X509* const shown = X509_STORE_CTX_get0_cert(chain);
        bool const vouched = X509_verify_cert(chain) == 1;
        if (vouched && std::ranges::any_of(hosts, [&](std::string const& host) { return is_for(shown, host); }))
            return 1;
        if (vouched)
            X509_STORE_CTX_set_error(chain, X509_V_ERR_HOSTNAME_MISMATCH);
        std::fprintf(stderr, "TLS: certificate refused: %s\n",
                     X509_verify_cert_error_string(X509_STORE_CTX_get_error(chain)));
        return 0;
    }
    /// Before a connection of ours says anything. libre keeps its SSL objects to itself, their context is ours.
    static void greet(SSL const* connection, int where, int) {
        auto const* const self = static_cast<tls_context*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
        if (where == SSL_CB_HANDSHAKE_START && SSL_is_server(connection) == 0)
            SSL_set_tlsext_host_name(const_cast<SSL*>(connection), self->only_name.c_str());
    }
};

namespace {

/// The one name among the hosts; empty: there are several, or an address (RFC 6066 section 3: no name then).
std::string only_name_of(std::vector<std::string> const& hosts) {
    sa address;
    bool const one = !hosts.empty() && std::ranges::count(hosts, hosts[0]) == std::ssize(hosts);
    return one && sa_set_str(&address, hosts[0].c_str(), 0) != 0 ? hosts[0] : "";
}

}  // namespace

tls_context::~tls_context() {
    mem_deref(context);
}

std::string tls_context::open(tls_settings const& chosen, std::vector<std::string> hosts) {
    accepted = std::move(hosts);
    char const* const own = chosen.certificate.empty() ? nullptr : chosen.certificate.c_str();
    if (tls_alloc(&context, TLS_METHOD_SSLV23, own, nullptr) != 0)
        return "TLS can't be used" +
               (own == nullptr ? std::string() : " with the certificate in " + chosen.certificate);
    SSL_CTX_set_min_proto_version(tls_openssl_context(context), TLS1_2_VERSION);
    only_name = only_name_of(accepted);
    if (!only_name.empty()) {
        SSL_CTX_set_app_data(tls_openssl_context(context), this);
        SSL_CTX_set_info_callback(tls_openssl_context(context), handlers::greet);
    }
    return chosen.verify ? trust(chosen) : "";
}

std::string tls_context::trust(tls_settings const& chosen) {
    SSL_CTX* const shared = tls_openssl_context(context);
    SSL_CTX_set_verify(shared, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_cert_verify_callback(shared, handlers::verify, this);
    if (chosen.ca_file.empty())
        return SSL_CTX_set_default_verify_paths(shared) == 1 ? "" : "the system trusts no certificates";
    return tls_add_ca(context, chosen.ca_file.c_str()) == 0 ? "" : "no certificates in " + chosen.ca_file;
}

}  // namespace fxsphone
