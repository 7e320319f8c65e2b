#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/LoopbackListener.h"
#include "support/TempDir.h"

extern char** environ;

namespace zelor::test {

/// nginx on loopback, which speaks HTTP/2 over TLS and serves one text under every name.
class Nginx {
  public:
    /// Its program; "" where it is not installed.
    static std::string program() {
        for (const char* path :
             {"/usr/sbin/nginx", "/usr/local/bin/nginx", "/opt/homebrew/bin/nginx", "/usr/bin/nginx"})
            if (boost::filesystem::exists(path)) return path;
        return "";
    }

    /// `certificate` and `key` in PEM. Throws std::runtime_error when it does not come up.
    Nginx(const std::string& certificate, const std::string& key) {
        writeFile(dir_ / "certificate.pem", certificate);
        writeFile(dir_ / "key.pem", key);
        // Another process may take the port before nginx does.
        for (int attempt = 0; attempt < 5; ++attempt) {
            port_ = LoopbackListener().port();
            if (start()) return;
        }
        throw std::runtime_error("nginx does not start: " + readFile(dir_ / "error.log"));
    }
    ~Nginx() { end(); }
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    std::string url() const { return "https://127.0.0.1:" + std::to_string(port_); }
    /// A line for each request: the number of its connection and its protocol. Ends the server.
    std::string takeLog() {
        end();
        return readFile(dir_ / "access.log");
    }

  private:
    std::string configuration() const {
        const std::string at = dir_.path().string() + '/';
        std::string text =
            "daemon off; worker_processes 1; pid " + at + "pid; error_log " + at +
            "error.log;\nevents {}\nhttp {\nlog_format short '$connection $server_protocol';\naccess_log " +
            at + "access.log short;\n";
        for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            text += std::string(kind) + "_temp_path " + at + kind + ";\n";
        return text + "server {\nlisten 127.0.0.1:" + std::to_string(port_) +
               " ssl http2;\nssl_certificate certificate.pem;\nssl_certificate_key key.pem;\n"
               "location / { return 200 served; }\n}\n}\n";
    }

    bool start() {
        writeFile(dir_ / "nginx.conf", configuration());
        std::string words[] = {program(),           "-p", dir_.path().string(), "-c",
                               dir_ / "nginx.conf", "-e", dir_ / "error.log"};
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        if (::posix_spawn(&process_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < giveUp) {
            // The pid is written once the port is open.
            if (boost::filesystem::exists(dir_ / "pid")) return true;
            if (::waitpid(process_, nullptr, WNOHANG) == process_) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        process_ = 0;
        return false;
    }

    void end() {
        if (process_ <= 0) return;
        ::kill(process_, SIGTERM);
        ::waitpid(process_, nullptr, 0);
        process_ = 0;
    }

    TempDir dir_;
    int port_ = 0;
    pid_t process_ = 0;
};

}  // namespace zelor::test
