#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// A key and its certificate, made on the spot: an authority of its own, or issued by one.
class Certificate {
public:
    /// An authority that trusts only itself; its certificate is also in `file()` for whoever is to
    /// trust it.
    static Certificate authority() {
        Certificate made("CN test authority", nullptr, "critical,CA:TRUE", "");
        made.m_file =
            std::filesystem::temp_directory_path() /
            ("sorvel-authority-" + std::to_string(::getpid()) + "-" + std::to_string(serial()) + ".pem");
        std::FILE* const file = std::fopen(made.m_file.c_str(), "w");
        PEM_write_X509(file, made.x509());
        std::fclose(file);
        return made;
    }
    /// @param names  such as "DNS:localhost,IP:127.0.0.1"
    Certificate issue(const std::string& names) const {
        return Certificate("CN test server", this, "CA:FALSE", names);
    }

    Certificate(Certificate&& other) noexcept
        : m_key(std::move(other.m_key)), m_x509(std::move(other.m_x509)),
          m_file(std::exchange(other.m_file, {})) {}
    Certificate& operator=(Certificate&&) = delete;
    ~Certificate() {
        if (!m_file.empty()) std::filesystem::remove(m_file);
    }

    EVP_PKEY* key() const { return m_key.get(); }
    X509* x509() const { return m_x509.get(); }
    const std::string& file() const { return m_file; }

private:
    Certificate(const std::string& name, const Certificate* issuer, const char* constraints,
                const std::string& names)
        : m_key(EVP_EC_gen("P-256"), &EVP_PKEY_free), m_x509(X509_new(), &X509_free) {
        X509* const x509 = m_x509.get();
        X509_set_version(x509, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(x509), serial());
        X509_gmtime_adj(X509_getm_notBefore(x509), -3600);
        X509_gmtime_adj(X509_getm_notAfter(x509), 24 * 3600L);
        X509_set_pubkey(x509, m_key.get());
        X509_NAME* const subject = X509_get_subject_name(x509);
        const auto* const text = reinterpret_cast<const unsigned char*>(name.c_str());
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, text, -1, -1, 0);
        X509_set_issuer_name(x509, issuer == nullptr ? subject : X509_get_subject_name(issuer->x509()));
        addExtension(NID_basic_constraints, constraints);
        if (!names.empty()) addExtension(NID_subject_alt_name, names.c_str());
        if (X509_sign(x509, issuer == nullptr ? m_key.get() : issuer->key(), EVP_sha256()) == 0)
            throw std::runtime_error("the certificate cannot be signed");
    }

    void addExtension(int kind, const char* value) {
        X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
        X509_add_ext(m_x509.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }

    static long serial() {
        static long last = 0;
        return ++last;
    }

    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> m_key;
    std::unique_ptr<X509, decltype(&X509_free)> m_x509;
    std::string m_file;
};

/// One TLS connection, byte for byte, for what a server library would tidy up before it shows it.
class WireTap {
public:
    explicit WireTap(const Certificate& certificate)
        : m_context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
        SSL_CTX_use_certificate(m_context.get(), certificate.x509());
        SSL_CTX_use_PrivateKey(m_context.get(), certificate.key());
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_socket, any, size) != 0 || ::listen(m_socket, 1) != 0)
            throw std::runtime_error("no port");
        ::getsockname(m_socket, any, &size);
        m_host = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    ~WireTap() { ::close(m_socket); }

    const std::string& host() const { return m_host; }

    /// Waits for a connection, reads until the text ends in `end`, answers 200 without a body.
    std::string hear(const std::string& end) {
        const int connection = ::accept(m_socket, nullptr, nullptr);
        const timeval patience = {20, 0};
        ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(m_context.get()), &SSL_free);
        SSL_set_fd(tls.get(), connection);
        std::string heard;
        char chunk[4096];
        if (SSL_accept(tls.get()) == 1) {
            for (int got = 1; got > 0 && !heard.ends_with(end);) {
                got = SSL_read(tls.get(), chunk, sizeof chunk);
                if (got > 0) heard.append(chunk, static_cast<std::size_t>(got));
            }
            constexpr std::string_view kAnswer =
                "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
            SSL_write(tls.get(), kAnswer.data(), static_cast<int>(kAnswer.size()));
        }
        ::close(connection);
        return heard;
    }

private:
    int m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_context;
    std::string m_host;
};

/// An HTTPS server on 127.0.0.1 that writes down what it is asked and answers as it is told.
class HttpsServer {
public:
    struct Request {
        std::string method;
        std::string path;
        std::vector<std::pair<std::string, std::string>> headers; ///< by name, without Host
        std::string body;
    };
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    explicit HttpsServer(const Certificate& certificate, Handler handler = {})
        : m_server(certificate.x509(), certificate.key()), m_handler(std::move(handler)) {
        const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
            note(request);
            if (m_handler) m_handler(request, response);
        };
        m_server.Get(".*", answer);
        m_server.Post(".*", answer);
        m_port = m_server.bind_to_any_port("127.0.0.1");
        if (m_port < 0) throw std::runtime_error("no port for the server");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        while (!m_server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    HttpsServer(const HttpsServer&) = delete;
    HttpsServer& operator=(const HttpsServer&) = delete;
    ~HttpsServer() {
        m_server.stop();
        m_thread.join();
    }

    std::string host() const { return "127.0.0.1:" + std::to_string(m_port); }
    std::string url(const std::string& path = "/") const { return "https://" + host() + path; }
    SSL_CTX* context() { return m_server.ssl_context(); }

    std::vector<Request> requests() {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }
    std::vector<std::string> paths() {
        std::vector<std::string> all;
        for (const Request& request : requests()) all.push_back(request.path);
        return all;
    }

private:
    void note(const httplib::Request& request) {
        Request noted{request.method, request.target, {}, request.body};
        for (const auto& [name, value] : request.headers) { // sorted by the library, which adds the addresses
            const bool isAdded = name.starts_with("REMOTE_") || name.starts_with("LOCAL_");
            if (!isAdded && name != "Host") noted.headers.emplace_back(name, value);
        }
        const std::lock_guard lock(m_mutex);
        m_requests.push_back(std::move(noted));
    }

    httplib::SSLServer m_server;
    Handler m_handler;
    int m_port = -1;
    std::thread m_thread;
    std::mutex m_mutex;
    std::vector<Request> m_requests;
};
