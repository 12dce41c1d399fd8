/* files.h -- temporary directories, whole-file reads and writes, environment variables set for a scope. */
#ifndef MAREPLOT_TEST_FILES_H
#define MAREPLOT_TEST_FILES_H

#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

inline std::string makeTempDir(const std::string &prefix) {
    std::string tmpl = "/tmp/" + prefix + "XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back(0);
    if (mkdtemp(buf.data()) == NULL) abort();
    return std::string(buf.data());
}

/* Removes a tree under /tmp; other paths are left alone. */
inline void removeTree(const std::string &path) {
    if (path.size() < 6 || path.compare(0, 5, "/tmp/") != 0) return;
    if (system(("rm -rf '" + path + "'").c_str()) != 0) return;
}

inline std::string readFile(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

inline void writeFile(const std::string &path, const std::string &data) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << data;
}

inline bool fileExists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

/* Sets (value non-null) or unsets an environment variable for the scope; tzset() follows both, for TZ. */
class ScopedEnv {
  public:
    ScopedEnv(const char *name, const char *value) : name_(name), had_(getenv(name) != nullptr) {
        if (had_) old_ = getenv(name);
        set(value);
    }
    ~ScopedEnv() { set(had_ ? old_.c_str() : nullptr); }
    void set(const char *value) {
        if (value)
            setenv(name_.c_str(), value, 1);
        else
            unsetenv(name_.c_str());
        tzset();
    }

  private:
    std::string name_, old_;
    bool had_;
};

#endif
