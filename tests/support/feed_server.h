/* feed_server.h -- a sentence feed on a loopback port the host connects to, and readers of its status. */
#ifndef MAREPLOT_FEED_SERVER_H
#define MAREPLOT_FEED_SERVER_H

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/* Accepts any number of connections (port 0: an ephemeral one) and sends to the newest. */
class FeedServer {
  public:
    explicit FeedServer(int port = 0) {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
        struct sockaddr_in a;
        memset(&a, 0, sizeof(a));
        a.sin_family = AF_INET;
        a.sin_port = htons((uint16_t)port);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(fd_, (struct sockaddr *)&a, sizeof(a)) != 0 || listen(fd_, 8) != 0) abort();
        socklen_t len = sizeof(a);
        getsockname(fd_, (struct sockaddr *)&a, &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] {
            while (!stop_) {
                struct pollfd pf = {fd_, POLLIN, 0};
                if (poll(&pf, 1, 50) <= 0) continue;
                int c = accept(fd_, NULL, NULL);
                if (c < 0) continue;
                std::lock_guard<std::mutex> g(mu_);
                conns_.push_back(c);
                accepts_++;
            }
        });
    }
    ~FeedServer() {
        stop_ = true;
        thread_.join();
        close(fd_);
        for (int c : conns_) close(c);
    }
    int port() const { return port_; }
    int accepts() const { return accepts_; }
    bool waitAccepts(int n, int ms) {
        for (int i = 0; i < ms / 10 && accepts_ < n; i++) usleep(10000);
        return accepts_ >= n;
    }
    void sendLine(const std::string &bytes) {
        int c = newest();
        if (c >= 0) send(c, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    /* True when the peer closes the newest connection within ms. */
    bool newestClosedWithin(int ms) {
        int c = newest();
        struct pollfd pf = {c, POLLIN, 0};
        char sink[256];
        auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (std::chrono::steady_clock::now() < end) {
            if (poll(&pf, 1, 50) > 0) {
                ssize_t r = recv(c, sink, sizeof(sink), MSG_DONTWAIT);
                if (r == 0 || (r < 0 && errno != EAGAIN)) return true;
            }
        }
        return false;
    }

  private:
    int newest() {
        std::lock_guard<std::mutex> g(mu_);
        return conns_.empty() ? -1 : conns_.back();
    }
    int fd_ = -1, port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<int> accepts_{0};
    std::mutex mu_;
    std::vector<int> conns_;
    std::thread thread_;
};

/* The number after "key": in a JSON text, or -99999 when it is absent. */
inline double jsonNumber(const std::string &json, const char *key) {
    std::string k = std::string("\"") + key + "\":";
    size_t at = json.find(k);
    return at == std::string::npos ? -99999 : strtod(json.c_str() + at + k.size(), NULL);
}

/* Polls ok every 50 ms for at most ms. */
inline bool waitFor(const std::function<bool()> &ok, int ms) {
    for (int i = 0; i < ms / 50; i++) {
        if (ok()) return true;
        usleep(50000);
    }
    return ok();
}

#endif
