/*
** window_place.h -- where the window opens: where the user left it, or on
** a first start at about 80 % of the available screen, centred.
*/
#ifndef MAREPLOT_WINDOW_PLACE_H
#define MAREPLOT_WINDOW_PLACE_H

class QWidget;

/* The file in the data directory (the current directory once the start-up
** has settled it) that keeps the window's place between runs. */
#define MR_WINDOW_PLACE_FILE "window.key"

/* Sizes w to about 80 % of the primary screen's available area and
** centres it there. */
void mr_window_first_place(QWidget *w);

/* Puts w where the place file says; without a usable file, where a first
** start puts it. Returns 1 when the stored place was used, else 0. Call
** before the window is shown. */
int mr_window_place(QWidget *w);

/* Writes w's size, place and state to the place file. A failed write
** leaves the next start at the first-start place. */
void mr_window_keep(const QWidget *w);

#endif
