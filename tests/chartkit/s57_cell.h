/* s57_cell.h -- small ENC cells through GDAL's S57 writer, in file order: vector primitives, then the
** features on them (an area one closed edge on one node, a line one edge between two, a point one node). */
#ifndef MAREPLOT_TEST_S57_CELL_H
#define MAREPLOT_TEST_S57_CELL_H

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal.h>
#include <ogr_api.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

/* Object class codes of the features the tests write. */
enum { S57_OBJL_BOYLAT = 17, S57_OBJL_COALNE = 30, S57_OBJL_DEPARE = 42, S57_OBJL_DEPCNT = 43,
       S57_OBJL_LNDARE = 71, S57_OBJL_LIGHTS = 75, S57_OBJL_SOUNDG = 129, S57_OBJL_M_COVR = 302 };

/* One attribute as acronym and value; a list (COLOUR) separated by commas. */
struct S57Attr {
    const char *name;
    std::string value;
};

struct S57CellWriter {
    GDALDatasetH ds = NULL;
    int nextVector = 1;  /* RCID of the next vector record */
    int nextFeature = 1; /* RCID and FIDN of the next feature record */
    bool ok = true;      /* false once a record could not be written */

    /* Creates the file with S57 options (NAME=VALUE); an update file's record ids go on from firstId. */
    bool create(const std::string &path, const std::vector<std::string> &options, int firstId = 1) {
        GDALAllRegister();
        GDALDriverH drv = GDALGetDriverByName("S57");
        if (drv == NULL) return false;
        char **opts = NULL;
        for (const std::string &o : options) opts = CSLAddString(opts, o.c_str());
        CPLPushErrorHandler(CPLQuietErrorHandler);
        ds = GDALCreate(drv, path.c_str(), 0, 0, 0, GDT_Unknown, opts);
        CPLPopErrorHandler();
        CSLDestroy(opts);
        nextVector = nextFeature = firstId;
        return ds != NULL;
    }

    void close() {
        if (ds != NULL) GDALClose(ds);
        ds = NULL;
    }

    /* Sets integer fields of f by name. */
    static void setInts(OGRFeatureH f, std::initializer_list<std::pair<const char *, int>> ints) {
        for (const auto &i : ints) OGR_F_SetFieldInteger(f, OGR_F_GetFieldIndex(f, i.first), i.second);
    }

    /* Writes f to layer l with geometry g (none when NULL) and frees it. */
    void add(OGRLayerH l, OGRFeatureH f, OGRGeometryH g) {
        if (g != NULL) OGR_F_SetGeometryDirectly(f, g);
        if (OGR_L_CreateFeature(l, f) != OGRERR_NONE) ok = false;
        OGR_F_Destroy(f);
    }

    /* An isolated (rcnm 110) or connected node (120); with depths, a sounding group of one position each. */
    int node(int rcnm, const std::vector<double> &lonLat, const std::vector<double> &depths = {}) {
        OGRLayerH l = GDALDatasetGetLayerByName(ds, rcnm == 110 ? "IsolatedNode" : "ConnectedNode");
        OGRFeatureH f = OGR_F_Create(OGR_L_GetLayerDefn(l));
        int id = nextVector++;
        setInts(f, {{"RCNM", rcnm}, {"RCID", id}});
        OGRGeometryH g;
        if (depths.empty()) {
            g = OGR_G_CreateGeometry(wkbPoint);
            OGR_G_SetPoint_2D(g, 0, lonLat[0], lonLat[1]);
        } else {
            g = OGR_G_CreateGeometry(wkbMultiPoint25D);
            for (size_t i = 0; i < depths.size(); i++) {
                OGRGeometryH p = OGR_G_CreateGeometry(wkbPoint25D);
                OGR_G_SetPoint(p, 0, lonLat[2 * i], lonLat[2 * i + 1], depths[i]);
                OGR_G_AddGeometryDirectly(g, p);
            }
        }
        add(l, f, g);
        return id;
    }

    /* An edge along lonLat: a closed ring hangs on one connected node at its start, a line on two. */
    int edge(const std::vector<double> &lonLat) {
        size_t n = lonLat.size() / 2;
        int start = node(120, {lonLat[0], lonLat[1]});
        bool closed = lonLat[0] == lonLat[2 * n - 2] && lonLat[1] == lonLat[2 * n - 1];
        int end = closed ? start : node(120, {lonLat[2 * n - 2], lonLat[2 * n - 1]});
        OGRLayerH l = GDALDatasetGetLayerByName(ds, "Edge");
        OGRFeatureH f = OGR_F_Create(OGR_L_GetLayerDefn(l));
        int id = nextVector++;
        setInts(f, {{"RCNM", 130}, {"RCID", id}, {"NAME_RCNM_0", 120}, {"NAME_RCID_0", start}, {"ORNT_0", 255},
                    {"USAG_0", 255}, {"TOPI_0", 1}, {"MASK_0", 255}, {"NAME_RCNM_1", 120}, {"NAME_RCID_1", end},
                    {"ORNT_1", 255}, {"USAG_1", 255}, {"TOPI_1", 2}, {"MASK_1", 255}});
        OGRGeometryH g = OGR_G_CreateGeometry(wkbLineString);
        for (size_t i = 1; i + 1 < n; i++) OGR_G_AddPoint_2D(g, lonLat[2 * i], lonLat[2 * i + 1]);
        add(l, f, g);
        return id;
    }

    /* A feature of class `layer` (code objl) on spatial records: prim 1 an isolated node, 2 and 3 edges. */
    void feature(const char *layer, int objl, int prim, int rcnm, int rcid, const std::vector<S57Attr> &attrs) {
        OGRLayerH l = GDALDatasetGetLayerByName(ds, layer);
        OGRFeatureH f = OGR_F_Create(OGR_L_GetLayerDefn(l));
        int id = nextFeature++;
        setInts(f, {{"RCID", id}, {"PRIM", prim}, {"GRUP", prim == 3 ? 1 : 2}, {"OBJL", objl}, {"AGEN", 540},
                    {"FIDN", id}, {"FIDS", 1}});
        /* the one spatial reference, each of its fields a list of one */
        for (const auto &r : std::initializer_list<std::pair<const char *, int>>{
                 {"NAME_RCNM", rcnm}, {"NAME_RCID", rcid}, {"ORNT", prim == 1 ? 255 : 1},
                 {"USAG", prim == 3 ? 1 : 255}, {"MASK", 255}})
            OGR_F_SetFieldIntegerList(f, OGR_F_GetFieldIndex(f, r.first), 1, &r.second);
        for (const S57Attr &a : attrs) {
            int i = OGR_F_GetFieldIndex(f, a.name);
            if (i < 0) continue;
            if (OGR_Fld_GetType(OGR_F_GetFieldDefnRef(f, i)) == OFTStringList) {
                char **list = CSLTokenizeString2(a.value.c_str(), ",", 0);
                OGR_F_SetFieldStringList(f, i, list);
                CSLDestroy(list);
            } else {
                OGR_F_SetFieldString(f, i, a.value.c_str());
            }
        }
        add(l, f, NULL);
    }

    void area(const char *layer, int objl, const std::vector<double> &ring, const std::vector<S57Attr> &attrs) {
        feature(layer, objl, 3, 130, edge(ring), attrs);
    }
    void line(const char *layer, int objl, const std::vector<double> &lonLat, const std::vector<S57Attr> &attrs) {
        feature(layer, objl, 2, 130, edge(lonLat), attrs);
    }
    void point(const char *layer, int objl, double lon, double lat, const std::vector<S57Attr> &attrs) {
        feature(layer, objl, 1, 110, node(110, {lon, lat}), attrs);
    }
    void soundings(const std::vector<double> &lonLat, const std::vector<double> &depths) {
        feature("SOUNDG", S57_OBJL_SOUNDG, 1, 110, node(110, lonLat, depths), {});
    }
};

/* A closed ring around a box, west-south first. */
inline std::vector<double> s57Box(double west, double south, double east, double north) {
    return {west, south, east, south, east, north, west, north, west, south};
}

#endif
