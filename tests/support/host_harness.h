/* host_harness.h -- build/mareplotd in a temporary HOME, spoken to in raw HTTP, for the black-box tests. */
#ifndef MAREPLOT_HOST_HARNESS_H
#define MAREPLOT_HOST_HARNESS_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/files.h"

struct HttpReply {
    std::string statusLine;             /* "HTTP/1.1 200 OK" */
    std::map<std::string, std::string> headers; /* by name as sent */
    std::string body;
    bool complete = false;              /* header and whole body arrived */
};

class Host {
  public:
    /* Starts the host in a fresh HOME (or home), waits until it accepts; fails, starting none, if the port answers. */
    explicit Host(const std::string &home = "");
    ~Host();
    /* Ends the host and waits until the port is free again. */
    void stop();
    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    const std::string &home() const { return home_; }
    std::string dataDir() const { return home_ + "/.local/share/mareplot"; }
    std::string output(); /* what the host printed so far */

  private:
    std::string home_;
    std::string outPath_;
    bool ownHome_ = false;
    pid_t pid_ = -1;
};

/* A raw client connection to 127.0.0.1:19999. */
class Conn {
  public:
    Conn();
    ~Conn();
    bool ok() const { return fd_ >= 0; }
    void send(const std::string &bytes);
    /* Reads one reply; waits at most timeoutMs. */
    HttpReply read(int timeoutMs = 5000);
    /* True when the peer closed the connection within timeoutMs. */
    bool closedWithin(int timeoutMs);
    /* True when nothing at all arrives within timeoutMs. */
    bool silentFor(int timeoutMs);
    int fd() const { return fd_; }

  private:
    bool fill(int timeoutMs);
    int fd_ = -1;
    std::string pending_;
    bool eof_ = false;
};

bool portAnswers();

/* One request on a fresh connection. */
HttpReply httpGet(const std::string &path);
HttpReply httpPost(const std::string &path, const std::string &body);

#endif
