#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <memory>

#include "phone/libre.h"
#include "phone/tls_context.h"

namespace {

/// The name that a client of the context greets a server with (SNI).
std::string name_in_greeting(fxsphone::tls_context const& client) {
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> const accepts(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    std::string name = "-";
    SSL_CTX_set_tlsext_servername_arg(accepts.get(), &name);
    SSL_CTX_set_tlsext_servername_callback(
        accepts.get(), +[](SSL* connection, int*, void* arg) {
            char const* const said = SSL_get_servername(connection, TLSEXT_NAMETYPE_host_name);
            *static_cast<std::string*>(arg) = said == nullptr ? "" : said;
            return SSL_TLSEXT_ERR_OK;
        });
    std::unique_ptr<SSL, decltype(&SSL_free)> const here(SSL_new(tls_openssl_context(client.handle())), SSL_free);
    std::unique_ptr<SSL, decltype(&SSL_free)> const there(SSL_new(accepts.get()), SSL_free);
    BIO* ends[2];
    BIO_new_bio_pair(&ends[0], 0, &ends[1], 0);
    SSL_set_bio(here.get(), ends[0], ends[0]);
    SSL_set_bio(there.get(), ends[1], ends[1]);
    SSL_set_connect_state(here.get());
    SSL_set_accept_state(there.get());
    SSL_do_handshake(here.get());
    SSL_do_handshake(there.get());
    return name;
}

TEST(phone_tls, names_the_only_host_that_it_can_mean) {
    struct expected {
        std::vector<std::string> hosts;
        std::string name;
    };
    for (expected const& one : std::vector<expected>{
             {{"pbx.example", "pbx.example"}, "pbx.example"}, {{"192.0.2.1"}, ""}, {{"a.example", "b.example"}, ""}}) {
        fxsphone::tls_context context;
        ASSERT_EQ(context.open({}, one.hosts), "");
        EXPECT_EQ(name_in_greeting(context), one.name) << one.hosts[0];
    }
}

}  // namespace
