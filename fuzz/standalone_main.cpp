/*
** standalone_main.cpp -- a plain driver for the fuzz target when no
** libFuzzer is at hand (g++ builds): replays every file named on the
** command line, then mutates them at random for the given number of
** seconds (-seconds=N), feeding each result to LLVMFuzzerTestOneInput.
*/
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
/* Optional, as with libFuzzer: set-up that runs once before any input. */
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

static void load(const std::string &path, std::vector<std::string> &corpus) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return;
    if (S_ISDIR(st.st_mode)) {
        DIR *d = opendir(path.c_str());
        if (d == NULL) return;
        while (struct dirent *e = readdir(d))
            if (e->d_name[0] != '.') load(path + "/" + e->d_name, corpus);
        closedir(d);
        return;
    }
    FILE *f = fopen(path.c_str(), "rb");
    if (f == NULL) return;
    std::string s;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) s.append(buf, n);
    fclose(f);
    corpus.push_back(s);
}

int main(int argc, char **argv) {
    long seconds = 0;
    std::vector<std::string> corpus;
    for (int i = 1; i < argc; i++) {
        if (strncmp(argv[i], "-seconds=", 9) == 0)
            seconds = atol(argv[i] + 9);
        else if (argv[i][0] != '-')
            load(argv[i], corpus);
    }
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    if (corpus.empty()) corpus.push_back("\x01!AIVDM,1,1,,A,15M67FC000G?ufbE`FepT@3n00Sa,0*00\n");
    for (const std::string &s : corpus) LLVMFuzzerTestOneInput((const uint8_t *)s.data(), s.size());

    srand(1);
    time_t end = time(NULL) + seconds;
    unsigned long runs = 0;
    while (time(NULL) < end) {
        for (int k = 0; k < 1000; k++, runs++) {
            std::string s = corpus[(size_t)rand() % corpus.size()];
            int edits = 1 + rand() % 8;
            for (int e = 0; e < edits && !s.empty(); e++) {
                size_t at = (size_t)rand() % s.size();
                switch (rand() % 4) {
                case 0: s[at] = (char)(rand() % 256); break;
                case 1: s.erase(at, (size_t)rand() % 8); break;
                case 2: s.insert(at, s.substr((size_t)rand() % s.size(), (size_t)rand() % 40)); break;
                case 3: s[at] = "0w`W,*!\n"[rand() % 8]; break;
                }
            }
            LLVMFuzzerTestOneInput((const uint8_t *)s.data(), s.size());
        }
    }
    printf("standalone fuzz: %lu mutated inputs, no fault\n", runs);
    return 0;
}
