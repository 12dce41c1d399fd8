/* host_harness.cpp -- start and stop of the headless host and a raw HTTP client for the black-box tests. */
#include "support/host_harness.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <sstream>

static int connectHost() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in a;
    memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_port = htons(19999);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, (struct sockaddr *)&a, sizeof(a)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* Generous: the host writes both carried packs first; sanitizer builds are slow. */
static const int kStartMs = 60000;
static const int kPortFreeMs = 10000;

static long long nowMs() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (long long)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

bool portAnswers() {
    int fd = connectHost();
    if (fd < 0) return false;
    close(fd);
    return true;
}

/* Waits at most timeoutMs until nothing accepts on the port; false if something still does. */
static bool waitPortFree(int timeoutMs) {
    long long end = nowMs() + timeoutMs;
    while (portAnswers()) {
        if (nowMs() >= end) return false;
        usleep(20000);
    }
    return true;
}

Host::Host(const std::string &home) : home_(home.empty() ? makeTempDir("mareplot-home-") : home) {
    ownHome_ = home.empty();
    outPath_ = home_ + "/.host-output";
    // A stranger answers (SO_REUSEPORT would let ours listen beside it); a host that is just going gets a moment.
    if (!waitPortFree(2000)) {
        ADD_FAILURE() << "something already listens on 127.0.0.1:19999 before this test's host starts; "
                         "stop it, or run the tests through tests/support/isolate.sh";
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        int out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        dup2(out, 1);
        dup2(out, 2);
        setenv("HOME", home_.c_str(), 1);
        unsetenv("XDG_DATA_HOME");
        execl(MAREPLOTD_PATH, MAREPLOTD_PATH, (char *)NULL);
        _exit(127);
    }
    long long end = nowMs() + kStartMs;
    for (;;) {
        int status;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            ADD_FAILURE() << "the host ended during its start (status " << status << "); its output:\n"
                          << output();
            return;
        }
        if (portAnswers()) return;
        if (nowMs() >= end) {
            ADD_FAILURE() << "the host did not accept on 127.0.0.1:19999 within " << kStartMs / 1000
                          << " s; its output:\n"
                          << output();
            stop();
            return;
        }
        usleep(20000);
    }
}

void Host::stop() {
    if (pid_ > 0) {
        // a sanitizer report in the host's output fails the test that ran it
        std::string out = output();
        if (out.find("AddressSanitizer") != std::string::npos || out.find("ThreadSanitizer") != std::string::npos ||
            out.find("runtime error:") != std::string::npos)
            ADD_FAILURE() << "sanitizer report from the host:\n" << out;
        kill(pid_, SIGKILL);
        waitpid(pid_, NULL, 0);
        pid_ = -1;
        // The next host must find the port free, not this one's socket.
        if (!waitPortFree(kPortFreeMs))
            ADD_FAILURE() << "127.0.0.1:19999 still answers " << kPortFreeMs / 1000
                          << " s after the host ended";
    }
}

Host::~Host() {
    stop();
    if (ownHome_) removeTree(home_);
}

std::string Host::output() { return readFile(outPath_); }

Conn::Conn() { fd_ = connectHost(); }

Conn::~Conn() {
    if (fd_ >= 0) close(fd_);
}

void Conn::send(const std::string &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t w = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (w <= 0) return;
        done += (size_t)w;
    }
}

bool Conn::fill(int timeoutMs) {
    if (eof_) return false;
    struct pollfd p = {fd_, POLLIN, 0};
    if (poll(&p, 1, timeoutMs) <= 0) return false;
    char buf[65536];
    ssize_t r = recv(fd_, buf, sizeof(buf), 0);
    if (r <= 0) {
        eof_ = true;
        return false;
    }
    pending_.append(buf, (size_t)r);
    return true;
}

HttpReply Conn::read(int timeoutMs) {
    HttpReply rep;
    size_t end;
    while ((end = pending_.find("\r\n\r\n")) == std::string::npos)
        if (!fill(timeoutMs)) return rep;
    std::string head = pending_.substr(0, end);
    pending_.erase(0, end + 4);
    std::istringstream hs(head);
    std::string line;
    std::getline(hs, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    rep.statusLine = line;
    while (std::getline(hs, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t c = line.find(": ");
        if (c != std::string::npos) rep.headers[line.substr(0, c)] = line.substr(c + 2);
    }
    size_t len = (size_t)atol(rep.headers["Content-Length"].c_str());
    while (pending_.size() < len && fill(timeoutMs)) {
    }
    rep.complete = pending_.size() >= len;
    rep.body = pending_.substr(0, len);
    pending_.erase(0, len);
    return rep;
}

bool Conn::closedWithin(int timeoutMs) {
    while (!eof_)
        if (!fill(timeoutMs)) return eof_;
    return true;
}

bool Conn::silentFor(int timeoutMs) {
    size_t before = pending_.size();
    fill(timeoutMs);
    return pending_.size() == before && !eof_;
}

HttpReply httpGet(const std::string &path) {
    Conn c;
    c.send("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    return c.read();
}

HttpReply httpPost(const std::string &path, const std::string &body) {
    Conn c;
    c.send("POST " + path + " HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body);
    return c.read();
}
