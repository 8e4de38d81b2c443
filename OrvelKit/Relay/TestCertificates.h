#pragma once

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace orvel {

// A certificate authority of a test, and what it signs. Everything is PEM.
class TestAuthority {
public:
    struct Signed {
        std::string certificate, key;
    };

    TestAuthority() : key(newKey()), own(sign("Test authority", {}, true, 3600, *key)) {}

    std::string certificate() const { return pem(*own); }
    // For a name ("DNS:localhost,IP:127.0.0.1"), valid from a day ago until in `seconds`.
    Signed issue(const std::string& names, long seconds = 3600) const {
        const auto leafKey = newKey();
        return {pem(*sign("Test server", names, false, seconds, *leafKey)), pem(*leafKey)};
    }

private:
    template <auto release>
    struct Release {
        void operator()(auto* object) const { release(object); }
    };
    using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
    using Certificate = std::unique_ptr<X509, Release<X509_free>>;

    static void must(bool succeeded) {
        if (!succeeded) std::abort();
    }

    static Key newKey() {
        Key key(EVP_EC_gen("P-256"));
        must(key != nullptr);
        return key;
    }

    Certificate sign(const char* commonName, const std::string& names, bool isAuthority,
                     long seconds, EVP_PKEY& subjectKey) const {
        Certificate certificate(X509_new());
        X509* const raw = certificate.get();
        must(X509_set_version(raw, 2) == 1);
        static int serial = 0;
        ASN1_INTEGER_set(X509_get_serialNumber(raw), ++serial);
        X509_gmtime_adj(X509_getm_notBefore(raw), -86'400);
        X509_gmtime_adj(X509_getm_notAfter(raw), seconds);
        must(X509_set_pubkey(raw, &subjectKey) == 1);
        must(X509_NAME_add_entry_by_txt(X509_get_subject_name(raw), "CN", MBSTRING_ASC,
                                        reinterpret_cast<const unsigned char*>(commonName), -1, -1,
                                        0) == 1);
        must(X509_set_issuer_name(raw, X509_get_subject_name(own ? own.get() : raw)) == 1);
        X509V3_CTX context;
        X509V3_set_ctx(&context, own ? own.get() : raw, raw, nullptr, nullptr, 0);
        const auto extend = [&](int kind, const std::string& value) {
            std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>> extension(
                X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
            must(extension && X509_add_ext(raw, extension.get(), -1) == 1);
        };
        extend(NID_basic_constraints, isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
        if (!names.empty()) extend(NID_subject_alt_name, names);
        must(X509_sign(raw, key.get(), EVP_sha256()) > 0);
        return certificate;
    }

    template <class Write>
    static std::string written(Write write) {
        std::unique_ptr<BIO, Release<BIO_free_all>> memory(BIO_new(BIO_s_mem()));
        must(memory && write(memory.get()) == 1);
        char* data = nullptr;
        const long length = BIO_get_mem_data(memory.get(), &data);
        return {data, static_cast<std::size_t>(length)};
    }
    static std::string pem(X509& certificate) {
        return written([&](BIO* to) { return PEM_write_bio_X509(to, &certificate); });
    }
    static std::string pem(EVP_PKEY& privateKey) {
        return written([&](BIO* to) {
            return PEM_write_bio_PrivateKey(to, &privateKey, nullptr, nullptr, 0, nullptr, nullptr);
        });
    }

    const Key key;
    const Certificate own;
};

}  // namespace orvel
