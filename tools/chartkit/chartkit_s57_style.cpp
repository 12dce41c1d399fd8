/*
** chartkit_s57_style.cpp -- the day palette of S-57 tiles: deep water
** white, shallow water in deepening blues, drying ground green, land buff,
** lights magenta unless their colour says otherwise.
*/
#include "tools/chartkit/chartkit_s57_style.h"

#define RGB(r, g, b) (r) / 255.0, (g) / 255.0, (b) / 255.0, 1.0

const CkS57Style ck_s57Style = {
    /* water */ {RGB(0xff, 0xff, 0xff), 0},
    /* depthBand */
    {
        {RGB(0xa8, 0xc8, 0x9a), 0}, /* drying */
        {RGB(0x74, 0xb4, 0xe4), 0}, /* 0 to 2 m */
        {RGB(0x9c, 0xcc, 0xf0), 0}, /* 2 to 5 m */
        {RGB(0xc4, 0xe2, 0xf8), 0}, /* 5 to 10 m */
        {RGB(0xe2, 0xf0, 0xfc), 0}, /* 10 to 20 m */
        {RGB(0xff, 0xff, 0xff), 0}, /* 20 m and deeper */
    },
    /* depthFrom */ {-1e9, 0, 2, 5, 10, 20},
    /* dredgedEdge */ {RGB(0x6e, 0x78, 0x82), 1.0},
    /* dredgedDash */ 4.0,
    /* land */ {RGB(0xf4, 0xe4, 0xb0), 0},
    /* builtUp */ {RGB(0xdc, 0xc4, 0x8c), 0},
    /* inlandWater */ {RGB(0x9c, 0xcc, 0xf0), 0},
    /* river */ {RGB(0x5a, 0x9c, 0xd8), 1.2},
    /* contour */ {0x6c / 255.0, 0x8c / 255.0, 0xa8 / 255.0, 0.9, 0.7},
    /* coastline */ {RGB(0x3a, 0x2e, 0x1c), 1.2},
    /* shoreline */ {RGB(0x3a, 0x2e, 0x1c), 1.8},
    /* sounding */ {RGB(0x50, 0x5a, 0x64), 0},
    /* soundingSize */ 9.0,
    /* soundingFont */ "DejaVu Sans",
    /* soundingMinZoomBelowMax */ 1,
    /* soundingDecimalsBelow */ 31.0,
    /* lightDefault */ {0xd0 / 255.0, 0x20 / 255.0, 0xa0 / 255.0, 0.85, 0},
    /* flareLength, flareWidth */ 16.0, 5.0,
    /* buoyRadius */ 4.5,
    /* beaconWidth, beaconHeight */ 3.0, 10.0,
    /* symbolEdge */ {RGB(0x20, 0x20, 0x20), 0.8},
    /* colour */
    {
        {RGB(0x80, 0x80, 0x80), 0}, /* 0: not a code */
        {RGB(0xff, 0xff, 0xff), 0}, /* 1 white */
        {RGB(0x10, 0x10, 0x10), 0}, /* 2 black */
        {RGB(0xe0, 0x20, 0x20), 0}, /* 3 red */
        {RGB(0x20, 0xa0, 0x30), 0}, /* 4 green */
        {RGB(0x20, 0x40, 0xd0), 0}, /* 5 blue */
        {RGB(0xf8, 0xd8, 0x10), 0}, /* 6 yellow */
        {RGB(0x90, 0x90, 0x90), 0}, /* 7 grey */
        {RGB(0x8c, 0x5a, 0x28), 0}, /* 8 brown */
        {RGB(0xf0, 0xa8, 0x20), 0}, /* 9 amber */
        {RGB(0x8c, 0x3c, 0xc8), 0}, /* 10 violet */
        {RGB(0xf8, 0x80, 0x10), 0}, /* 11 orange */
        {RGB(0xd0, 0x20, 0xa0), 0}, /* 12 magenta */
        {RGB(0xf8, 0xa0, 0xc0), 0}, /* 13 pink */
    },
    /* unknownColour */ {RGB(0x90, 0x90, 0x90), 0},
    /* margin */ 24.0,
};
