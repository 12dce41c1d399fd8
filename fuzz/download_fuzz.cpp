/*
** download_fuzz.cpp -- fuzz target for the pack download's side of the
** chart server: the reply header that http_get reads, and the body blocks,
** retries, resume, size and CRC judgement and install step of `download`,
** run to its end on the calling thread.
**
** No network is used. Name look-up and connect are replaced in this
** program: every connect is handed one end of a fresh socket pair whose
** other end already holds the next reply of the input and is shut for
** writing; once the replies run out, connects are refused. The waits
** between retries take no time here.
**
** Input: one options byte, then parts separated by "--next--\n". The first
** part is the argument text of /download/ ("<id> <version> <size> <crc>")
** and, on a second line, the chartserver.key line. Options: bit 0 the name
** look-up fails; bit 1 the next part is what an earlier run left in the
** temporary file; bit 2 size and CRC are replaced by those of that part and
** the first reply's body together, so that a good reply installs; bit 3
** the pack is the application pack (id 1). Every further part is one
** connection's reply.
*/
#include <errno.h>
#include <netdb.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <time.h>

#include <string>
#include <vector>

#include "fuzz_feed.h"
#include "fuzz_support.h"
#include "store/pack_store.h"

static std::vector<std::string> replies;
static size_t nextReply;
static std::vector<int> peers;
static bool lookupFails;
static __thread bool inDownload;

extern "C" int getaddrinfo(const char *, const char *, const struct addrinfo *, struct addrinfo **res) {
    if (lookupFails) return EAI_NONAME;
    *res = fuzz_loopback();
    return 0;
}

extern "C" void freeaddrinfo(struct addrinfo *) {}

/* Puts a socket pair end in place of fd, with the next reply waiting. */
extern "C" int connect(int fd, const struct sockaddr *, socklen_t) {
    if (nextReply >= replies.size()) {
        errno = ECONNREFUSED;
        return -1;
    }
    const std::string &r = replies[nextReply];
    int peer = fuzz_pair_connect(fd, r.data(), r.size());
    if (peer < 0) return -1;
    nextReply++;
    peers.push_back(peer);
    return 0;
}

/* The download waits between retries and look-ups; here it need not. */
extern "C" unsigned int sleep(unsigned int seconds) { return fuzz_sleep(seconds, inDownload); }

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_fill_app();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    uint8_t opts = data[0];
    std::vector<std::string> parts = fuzz_parts(data + 1, size - 1);
    std::string head = parts[0];
    std::string args = head.substr(0, head.find('\n'));
    size_t p = 1;
    std::string resume;

    lookupFails = opts & 1;
    if ((opts & 2) && p < parts.size()) resume = parts[p++];
    replies.assign(parts.begin() + (long)p, parts.end());
    nextReply = 0;

    if (opts & 4) {
        /* the pack is the resumed part and the first reply's body */
        std::string body;
        if (!replies.empty()) {
            size_t end = replies[0].find("\r\n\r\n");
            if (end != std::string::npos) body = replies[0].substr(end + 4);
        }
        std::string pack = resume + body;
        uint32_t crc = ~ucrc32(0xFFFFFFFFu, pack.data(), (int)pack.size());
        char text[96];
        snprintf(text, sizeof(text), "%d 3 %d %08x", (opts & 8) ? 1 : 7, (int)pack.size(), crc);
        args = text;
    }
    snprintf(mrApp.dlArgs, sizeof(mrApp.dlArgs), "%s", args.c_str());
    if (head.find('\n') != std::string::npos)
        fuzz_write_file("chartserver.key", head.data() + head.find('\n') + 1, head.size() - head.find('\n') - 1);
    if (opts & 2) {
        int id = 0;
        sscanf(mrApp.dlArgs, "%d", &id);
        char name[32];
        snprintf(name, sizeof(name), "N%06d.temp", id);
        fuzz_write_file(name, resume.data(), resume.size());
    }

    MR_STORE(mrApp.dlState, 1);
    inDownload = true;
    download();
    inDownload = false;

    for (int fd : peers) close(fd);
    peers.clear();
    mr_db_swap(&mrApp.appDb, NULL);
    mr_db_swap(&mrApp.chartDb, NULL);
    fuzz_clear_dir();
    return 0;
}
