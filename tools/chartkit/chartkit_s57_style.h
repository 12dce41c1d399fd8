/*
** chartkit_s57_style.h -- the one style table of the S-57 tile drawing:
** every colour, pen width and symbol size of a cell's day palette, in the
** manner of paper-chart colours. Change the look here, nowhere else.
*/
#ifndef MAREPLOT_CHARTKIT_S57_STYLE_H
#define MAREPLOT_CHARTKIT_S57_STYLE_H

/* A colour (0 to 1 per channel) and, for lines, its width in pixels. */
struct CkS57Pen {
    double r, g, b, a;
    double width;
};

/* Depth bands of depth and dredged areas, shallowest first: a band holds
** areas whose shallow limit (DRVAL1) lies at or above its `from` metres. */
#define CK_S57_DEPTH_BANDS 6

/* The colour codes of the COLOUR attribute that the table names: 1 white
** to 13 pink; other codes take `unknownColour`. */
#define CK_S57_COLOURS 14

struct CkS57Style {
    CkS57Pen water;                        /* inside the coverage where no area says more */
    CkS57Pen depthBand[CK_S57_DEPTH_BANDS]; /* drying, 0-2, 2-5, 5-10, 10-20, 20 m and deeper */
    double depthFrom[CK_S57_DEPTH_BANDS];  /* shallow limit of each band in metres; band 0 is below 0 */
    CkS57Pen dredgedEdge;                  /* dashed outline of a dredged area */
    double dredgedDash;                    /* dash length in pixels */
    CkS57Pen land;
    CkS57Pen builtUp;
    CkS57Pen inlandWater;                  /* lakes and river areas */
    CkS57Pen river;                        /* rivers drawn as lines */
    CkS57Pen contour;                      /* depth contours */
    CkS57Pen coastline;
    CkS57Pen shoreline;                    /* shoreline constructions: piers, moles, walls */
    CkS57Pen sounding;                     /* sounding figures */
    double soundingSize;                   /* font size in pixels */
    const char *soundingFont;
    int soundingMinZoomBelowMax;           /* soundings show from the finest zoom minus this */
    double soundingDecimalsBelow;          /* depths under this many metres keep one decimal */
    CkS57Pen lightDefault;                 /* flare of a light with no colour or a white one */
    double flareLength, flareWidth;        /* in pixels; the flare points south-east */
    double buoyRadius;                     /* buoy body, centred on its position */
    double beaconWidth, beaconHeight;      /* beacon body, standing on its position */
    CkS57Pen symbolEdge;                   /* outline of buoys and beacons */
    CkS57Pen colour[CK_S57_COLOURS];       /* COLOUR codes 1 to 13 (index 0 unused) */
    CkS57Pen unknownColour;                /* a buoy or beacon with no known colour */
    double margin;                         /* pixels around a tile whose features still reach into it */
};

extern const CkS57Style ck_s57Style;

#endif
