/* kit_support.h -- helpers of the chart kit, black-box and window tests: running programs, reading packs,
** a hand-made BSB/KAP chart, the tool's server on a free port with plain HTTP to it, a pty pair. */
#ifndef MAREPLOT_KIT_SUPPORT_H
#define MAREPLOT_KIT_SUPPORT_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"

namespace kit {

struct Run {
    int status = -1; /* exit code, or -1 when the program didn't exit normally */
    std::string out, err;
};

/* In a forked child: becomes args[0] (from PATH), or exits with 127. */
[[noreturn]] inline void execArgs(const std::vector<std::string> &args) {
    std::vector<char *> argv;
    for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

inline Run run(const std::vector<std::string> &args) {
    Run r;
    char outName[] = "/tmp/kit-out-XXXXXX", errName[] = "/tmp/kit-err-XXXXXX";
    int outFd = mkstemp(outName), errFd = mkstemp(errName);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(outFd, 1);
        dup2(errFd, 2);
        execArgs(args);
    }
    int st = 0;
    waitpid(pid, &st, 0);
    close(outFd);
    close(errFd);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    r.out = readFile(outName);
    r.err = readFile(errName);
    unlink(outName);
    unlink(errName);
    return r;
}

/* Runs sql on db (made if missing), args bound to the last statement; row 1 column 1 as bytes, or "(none)". */
inline std::string sqlOne(const std::string &db, const std::string &sql, const std::vector<std::string> &args = {}) {
    sqlite3 *h = nullptr;
    sqlite3_stmt *st = nullptr;
    std::string v = "(none)";
    sqlite3_open(db.c_str(), &h);
    for (const char *next = sql.c_str(); *next && sqlite3_prepare_v2(h, next, -1, &st, &next) == SQLITE_OK;) {
        for (size_t i = 0; *next == 0 && i < args.size(); i++)
            sqlite3_bind_text(st, (int)i + 1, args[i].c_str(), -1, SQLITE_STATIC);
        v = "(none)";
        if (st && sqlite3_step(st) == SQLITE_ROW && sqlite3_column_type(st, 0) != SQLITE_NULL)
            v.assign((const char *)sqlite3_column_blob(st, 0), (size_t)sqlite3_column_bytes(st, 0));
        sqlite3_finalize(st);
        st = nullptr;
    }
    sqlite3_close(h);
    return v;
}

inline std::string jsonAt(const std::string &json, const std::string &path) {
    return sqlOne(":memory:", "SELECT json_extract(?, ?)", {json, path});
}

/* CRC-32 of data as eight hex digits by zlib: the reference for the tool's and the host's own CRC. */
inline std::string crcHex(const std::string &data) {
    char hex[16];
    uLong c = crc32(crc32(0L, Z_NULL, 0), (const Bytef *)data.data(), (uInt)data.size());
    snprintf(hex, sizeof(hex), "%08lx", c);
    return hex;
}

/* A small BSB/KAP chart: a five-cornered border (south-west corner cut), left half colour 1, right half 2. */
inline std::string kapChart(double west, double south, double east, double north, int size = 64) {
    char head[2048];
    snprintf(head, sizeof(head),
             "! a test chart\r\nVER/3.0\r\n"
             "BSB/NA=Test Harbour,NU=T1,RA=%d,%d,DU=254\r\n"
             "KNP/SC=25000,GD=WGS84,PR=MERCATOR,PP=54.0,PI=UNKNOWN,SK=0.0,TA=90.0,UN=METERS,"
             "SD=MEAN LOWER LOW WATER\r\n"
             "CED/SE=1,RE=1,ED=01/05/2024\r\n"
             "RGB/1,200,220,240\r\nRGB/2,240,220,160\r\n"
             "REF/1,0,0,%.6f,%.6f\r\nREF/2,%d,0,%.6f,%.6f\r\nREF/3,%d,%d,%.6f,%.6f\r\nREF/4,0,%d,%.6f,%.6f\r\n"
             "PLY/1,%.6f,%.6f\r\nPLY/2,%.6f,%.6f\r\nPLY/3,%.6f,%.6f\r\nPLY/4,%.6f,%.6f\r\nPLY/5,%.6f,%.6f\r\n",
             size, size, north, west, size, north, east, size, size, south, east, size, south, west, north, west,
             north, east, south, east, south, (west + east) / 2, (south + north) / 2, west);
    std::string k = head;
    k += std::string("\x1a\x00", 2);
    k.push_back(2); /* bits per pixel value */
    std::vector<uint32_t> offsets;
    for (int row = 0; row < size; row++) {
        offsets.push_back((uint32_t)k.size());
        k.push_back((char)(row + 1)); /* row number, one byte below 128 */
        for (int colour = 1; colour <= 2; colour++) {
            int count = size / 2 - 1; /* run length minus one: 5 bits here, the rest in a second byte */
            k.push_back((char)(0x80 | colour << 5 | count >> 7));
            k.push_back((char)(count & 0x7f));
        }
        k.push_back(0);
    }
    uint32_t index = (uint32_t)k.size();
    offsets.push_back(index);
    for (uint32_t o : offsets) {
        k.push_back((char)(o >> 24));
        k.push_back((char)(o >> 16));
        k.push_back((char)(o >> 8));
        k.push_back((char)o);
    }
    return k;
}

/* One GET (or after "RAW " the bytes given) on a fresh connection: the reply up to close or timeoutMs of quiet. */
inline std::string get(int port, const std::string &target, int timeoutMs = 10000) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_port = htons((uint16_t)port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    struct timeval tv = {timeoutMs / 1000, timeoutMs % 1000 * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    std::string reply;
    if (connect(fd, (struct sockaddr *)&a, sizeof(a)) == 0) {
        std::string req = target.compare(0, 4, "RAW ") == 0
                              ? target.substr(4)
                              : "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
        ::send(fd, req.data(), req.size(), MSG_NOSIGNAL);
        char buf[65536];
        for (ssize_t n; (n = recv(fd, buf, sizeof(buf), 0)) > 0;) reply.append(buf, (size_t)n);
    }
    close(fd);
    return reply;
}

inline std::string bodyOf(const std::string &reply) {
    size_t at = reply.find("\r\n\r\n");
    return at == std::string::npos ? std::string() : reply.substr(at + 4);
}

/* A program in the background, its output to /dev/null; killed with the object. */
class Child {
  public:
    explicit Child(const std::vector<std::string> &args) {
        pid_ = fork();
        if (pid_ == 0) {
            dup2(open("/dev/null", O_WRONLY), 1);
            execArgs(args);
        }
    }
    ~Child() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    bool alive() const { return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0; }

  private:
    pid_t pid_ = -1;
};

/* A socat pty pair: a host reads gps, the test writes feed. No files when socat is missing. */
struct PtyPair {
    std::string dir = makeTempDir("mareplot-pty-"), gps = dir + "/gps", feed = dir + "/feed";
    Child socat{{"socat", "pty,raw,echo=0,link=" + gps, "pty,raw,echo=0,link=" + feed}};
    PtyPair() {
        for (int i = 0; i < 500 && !(fileExists(gps) && fileExists(feed)); i++) usleep(10000);
    }
    ~PtyPair() { removeTree(dir); }
};

/* mareplot-chartkit serve over dir on a free port, ended with the object. */
class Server : public Child {
  public:
    Server(const std::string &tool, const std::string &dir, const std::vector<std::string> &extra = {})
        : Child(args(tool, dir, extra)) {
        for (int i = 0; i < 1000 && !fileExists(dir + "/.port"); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        port_ = atoi(readFile(dir + "/.port").c_str());
    }
    int port() const { return port_; }

  private:
    /* Also removes the port file of an earlier server. */
    static std::vector<std::string> args(const std::string &tool, const std::string &dir,
                                         const std::vector<std::string> &extra) {
        unlink((dir + "/.port").c_str());
        std::vector<std::string> a = {tool, "serve", "--dir", dir, "--port-file", dir + "/.port"};
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    }
    int port_ = 0;
};

} // namespace kit

#endif
