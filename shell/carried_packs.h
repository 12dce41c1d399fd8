/*
** carried_packs.h -- the two packs that the headless host carries in its
** own binary, under the resource names of the window's resource set.
*/
#ifndef MAREPLOT_CARRIED_PACKS_H
#define MAREPLOT_CARRIED_PACKS_H

#include <stddef.h>

/* Finds the carried bytes of resource (":/A000001.marepack" or
** ":/A000002.marepack"). Returns 0 and sets *data and *size, or -1. */
int mr_carried_pack(const char *resource, const unsigned char **data, size_t *size);

/* Writes the carried resource to fileName (through a temporary name and a
** rename, so that a pack is never half there). Returns 0, or -1. */
int mr_copy_carried(const char *resource, const char *fileName);

#endif
