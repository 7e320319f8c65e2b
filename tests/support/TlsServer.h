#pragma once

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "base/Files.h"
#include "support/LoopbackListener.h"
#include "support/SigningKey.h"

namespace zelor::test {

/// Listens on loopback with a certificate of its own for 127.0.0.1, and answers each connection once with
/// "200 OK" and the body "served".
class TlsServer {
  public:
    TlsServer() {
        certify();
        SSL_CTX_set_alpn_select_cb(context_.get(), &TlsServer::select, this);
        thread_ = std::thread([this] { serve(); });
    }
    ~TlsServer() {
        listener_.stop();
        thread_.join();
    }
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;

    std::string url() const { return "https://" + listener_.address(); }
    /// The certificate, which no other authority vouches for.
    const std::string& certificate() const { return pem_; }
    std::string privateKey() const { return key_.privatePem(); }
    /// The protocols that clients offered since the last call, each behind a blank.
    std::string takeOffers() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(offers_, "");
    }

  private:
    template <class Thing, void (*Free)(Thing*)>
    struct Freed {
        void operator()(Thing* thing) const { Free(thing); }
    };

    void certify() {
        const std::unique_ptr<X509, Freed<X509, X509_free>> x509(X509_new());
        X509_set_version(x509.get(), 2);
        ASN1_INTEGER_set(X509_get_serialNumber(x509.get()), 1);
        X509_gmtime_adj(X509_getm_notBefore(x509.get()), -3600);
        X509_gmtime_adj(X509_getm_notAfter(x509.get()), 3600);
        X509_set_pubkey(x509.get(), key_.get());
        X509_NAME* name = X509_get_subject_name(x509.get());
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("a test"),
                                   -1, -1, 0);
        X509_set_issuer_name(x509.get(), name);
        const std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION, X509_EXTENSION_free>> names(
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1"));
        X509_add_ext(x509.get(), names.get(), -1);
        X509_sign(x509.get(), key_.get(), EVP_sha256());
        if (SSL_CTX_use_certificate(context_.get(), x509.get()) != 1 ||
            SSL_CTX_use_PrivateKey(context_.get(), key_.get()) != 1)
            throw std::runtime_error("OpenSSL failed in a test helper");
        const std::unique_ptr<BIO, Freed<BIO, BIO_free_all>> bio(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(bio.get(), x509.get());
        char* text = nullptr;
        const long size = BIO_get_mem_data(bio.get(), &text);
        pem_.assign(text, static_cast<std::size_t>(size));
    }

    static int select(SSL* /*ssl*/, const unsigned char** /*out*/, unsigned char* /*length*/,
                      const unsigned char* in, unsigned int size, void* self) {
        auto* server = static_cast<TlsServer*>(self);
        const std::lock_guard<std::mutex> lock(server->mutex_);
        for (unsigned int at = 0; at < size; at += in[at] + 1U)
            server->offers_ += ' ' + std::string(reinterpret_cast<const char*>(in + at + 1), in[at]);
        return SSL_TLSEXT_ERR_NOACK;  // HTTP/1.1 is what all speak
    }

    void serve() {
        while (const base::UniqueFd peer = listener_.accept()) {
            const std::unique_ptr<SSL, Freed<SSL, SSL_free>> ssl(SSL_new(context_.get()));
            SSL_set_fd(ssl.get(), peer.get());
            if (SSL_accept(ssl.get()) != 1) continue;
            std::string asked;
            char piece[4096];
            for (int got = 1; got > 0 && asked.find("\r\n\r\n") == std::string::npos;) {
                got = SSL_read(ssl.get(), piece, sizeof piece);
                if (got > 0) asked.append(piece, static_cast<std::size_t>(got));
            }
            const std::string answer =
                "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\nserved";
            (void)SSL_write(ssl.get(), answer.data(), static_cast<int>(answer.size()));
            (void)SSL_shutdown(ssl.get());
        }
    }

    SigningKey key_ = SigningKey::ec();
    std::unique_ptr<SSL_CTX, Freed<SSL_CTX, SSL_CTX_free>> context_{SSL_CTX_new(TLS_server_method())};
    std::string pem_;
    LoopbackListener listener_;
    std::mutex mutex_;
    std::string offers_;
    std::thread thread_;
};

}  // namespace zelor::test
