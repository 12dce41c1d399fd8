/*
** carried_packs.cpp -- lookup and copy of the packs linked into the headless
** host by carried_packs.S.
*/
#include "shell/carried_packs.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

extern "C" const unsigned char mr_pack1_begin[], mr_pack1_end[];
extern "C" const unsigned char mr_pack2_begin[], mr_pack2_end[];

int mr_carried_pack(const char *resource, const unsigned char **data, size_t *size) {
    if (strcmp(resource, ":/A000001.marepack") == 0) {
        *data = mr_pack1_begin;
        *size = (size_t)(mr_pack1_end - mr_pack1_begin);
        return 0;
    }
    if (strcmp(resource, ":/A000002.marepack") == 0) {
        *data = mr_pack2_begin;
        *size = (size_t)(mr_pack2_end - mr_pack2_begin);
        return 0;
    }
    return -1;
}

int mr_copy_carried(const char *resource, const char *fileName) {
    const unsigned char *data;
    size_t size, done = 0;
    char tmp[1024];
    int fd;

    if (mr_carried_pack(resource, &data, &size) != 0) return -1;
    if (snprintf(tmp, sizeof(tmp), "%s.part", fileName) >= (int)sizeof(tmp)) return -1;
    fd = open(tmp, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return -1;
    while (done < size) {
        ssize_t w = write(fd, data + done, size - done);
        if (w <= 0) break;
        done += (size_t)w;
    }
    if (close(fd) != 0 || done != size || rename(tmp, fileName) != 0) {
        unlink(tmp);
        return -1;
    }
    return 0;
}
