/*
** kelvor.settings.js: the settings record `k`, its storage in the trip
** database under the key "settings", the settings dialogue and the unit
** tables and formats that the whole client uses to show values.
**
** The record is one JSON text. Loading merges the stored copy over the
** defaults key by key, so a newer client keeps defaults for keys an older
** one never stored, and keys it no longer knows stay where they are.
*/

kelvor.settings = {
    host: null,
    k: null,

    /* select tables: rows of label, key, factor */
    i_settings_speed: [
        ["Knots", "kt", 1.94384449244],
        ["Meter/Sec", "m/s", 1],
        ["Km/h", "km/h", 3.6],
        ["MPH", "mph", 2.23693629205],
        ["Feet/Sec", "ft/s", 3.28083989501]
    ],
    i_settings_depth: [
        ["Meter", "m", 1],
        ["Feet", "ft", 3.28084],
        ["Fathom", "ftm", 1.8288]
    ],
    i_settings_geofmt: [
        ["Degree/Decimal", 0],
        ["Degree,Minute", 1],
        ["Degree,Minute,Second", 2]
    ],
    i_settings_compass: [
        ["True", 0]
    ],
    i_settings_language: [
        ["English", "en"],
        ["Deutsch", "de"],
        ["Fran\u00e7ais", "fr"]
    ],
    /* label, then steps of lower bound in metres, unit, factor, decimals;
    ** the first step whose bound the value reaches applies */
    i_settings_distance: [
        ["Nautical Miles & Meter", [[18520, "nm", 0.000539957, 0], [1852, "nm", 0.000539957, 1],
            [500, "nm", 0.000539957, 2], [0, "m", 1, 0]]],
        ["Kilometer & Meter", [[10000, "km", 0.001, 0], [1000, "km", 0.001, 1], [0, "m", 1, 0]]],
        ["Nautical Miles & Feet", [[18520, "nm", 0.000539957, 0], [1852, "nm", 0.000539957, 1],
            [305, "nm", 0.000539957, 2], [0, "ft", 3.28084, 0]]],
        ["Land Miles & Feet", [[160900, "mi", 0.000621371, 0], [16090, "mi", 0.000621371, 1],
            [305, "mi", 0.000621371, 2], [0, "ft", 3.28084, 0]]]
    ],

    /* letters for the hemispheres; the German copy writes east as "O" */
    EAST: "E",

    /* A new record: the pack in use and the map's place, the kit list with
    ** the program's own two packs, and the five groups of dialogue fields,
    ** by the kind of element that shows them: V inputs, I selects by row,
    ** S selects by key, R radio groups, C check boxes. */
    defaults: function () {
        var s = kelvor.settings;
        return {
            chartkit: "A000002.marepack",
            map: { lonX: 10.1, latY: 54.52, zoom: 8 },
            boat: { lonX: 10.1, latY: 54.52 },
            maplang: {},
            userid: false,
            usertoken: false,
            email: false,
            runCount: 0,
            chartKitList2: {
                1: { pid: 1, name: "CoreData", version: 0, filesize: 0, crc32: 0, stat: 2 },
                2: { pid: 2, name: "Overview", version: 0, filesize: 0, crc32: 0, stat: 2 }
            },
            ovlList: {},
            lastUpdate: false,
            V: s._defaultInputs(),
            I: {
                i_settings_speed: 0, i_settings_distance: 0, i_settings_depth: 0,
                i_settings_compass: 0, i_settings_geofmt: 2, i_gps_intern: 2,
                i_gps_source: 0, i_nmea_source: 0, i_wifi_source: 0
            },
            S: s._defaultKeyed(),
            R: { i_chart_follow_mode: 1 },
            C: s._defaultChecks()
        };
    },

    /* The boat and the network feed: the one the host is told, then the
    ** three the dialogue keeps. */
    _defaultInputs: function () {
        var s = kelvor.settings;
        var v = {
            i_settings_boat_name: "Boat 1",
            /* 8 knots, in m/s as the record keeps every speed */
            i_settings_boat_speed: 8 / s.i_settings_speed[0][2],
            i_settings_boat_draft: 2,
            i_traffic_ais_ip: "",
            i_traffic_ais_port: ""
        };
        for (var n = 1; n <= 3; n++) {
            v["i_traffic_ais_ip" + n] = "";
            v["i_traffic_ais_port" + n] = "";
        }
        return v;
    },

    /* Selects by key; the language is the host's. */
    _defaultKeyed: function () {
        var s = kelvor.settings;
        return {
            i_settings_language: s.host && s.host.alang ? s.host.alang : "en",
            i_settings_track_predictor: 1080,
            i_settings_track_interval: 86400,
            i_settings_track_distance: 50,
            i_settings_track_length: 7200,
            i_settings_track_maxdist: 500,
            i_settings_xte_max: 50,
            i_chart_raster_detail: 2,
            i_chart_raster_detail2: 2,
            i_traffic_ais_predictor: 1080,
            i_traffic_ais_track_length: 0,
            i_settings_screensize: 1,
            i_chart_wind_source: "auto",
            i_chart_stream_source: "auto",
            i_traffic_ais_marker_text_1: 1,
            i_traffic_ais_marker_text_2: 2
        };
    },

    _defaultChecks: function () {
        return {
            i_chart_layer_raster: true, i_chart_layer_frames: true, i_chart_layer_info: true,
            i_chart_layer_nob: true, i_traffic_mrapp_report: true, i_traffic_mrapp_report2: true,
            i_traffic_ais_showClassA: true, i_traffic_ais_showClassB: true,
            i_chart_wind_autoupdate: true, i_chart_stream_autoupdate: true,
            i_chart_wind_iso: true, i_chart_stream_iso: true, i_opengl_mode: true, i_track_on: true,
            i_traffic_mrapp_show: false, i_debug_mode: false, i_night_mode: false
        };
    },

    /* Recursive merge: an object present in both takes the stored members one
    ** by one; anything else is replaced. Returns dst. */
    merge: function (dst, src) {
        var s = kelvor.settings;
        for (var key in src) {
            if (!Object.prototype.hasOwnProperty.call(src, key)) continue;
            var a = dst[key], b = src[key];
            if (a && b && typeof a === "object" && typeof b === "object" && !Array.isArray(a)) {
                s.merge(a, b);
            } else {
                dst[key] = b;
            }
        }
        return dst;
    },

    /* Derives the client's own fields from the /hostversion reply. */
    setHost: function (h) {
        var s = kelvor.settings, dev = String(h.device || "").split("|");
        h.loc = String(h.locale || "").toLowerCase().split("-");
        h.name = dev[3];
        h.tz = new Date().getTimezoneOffset() * 60;
        h.androidVersion = dev[0] === "A" ? Number(dev[2]) : 99999;
        h.type = String(dev[0] || "").charAt(0);
        if (kelvor.aux.isIos()) h.iosversion = dev[2];
        s.host = h;
        return h;
    },

    /* Reads the stored record over the defaults. Any fault is logged and
    ** leaves the record as far as it got. */
    load: function () {
        var s = kelvor.settings, k = s.k;
        try {
            var stored = JSON.parse(getSync("/getValue/settings"));
            if (stored && typeof stored === "object") s.merge(k, stored);
            k.tversion = Date.now();
            k.S.i_settings_language = s.host.alang;
            if (Array.isArray(k.chartKitList)) {
                var l2 = {};
                for (var i = 0; i < k.chartKitList.length; i++) {
                    var kit = k.chartKitList[i];
                    if (kit && kit.pid !== undefined) l2[kit.pid] = kit;
                }
                k.chartKitList2 = s.merge(k.chartKitList2 || {}, l2);
                delete k.chartKitList;
            }
            if (k.chartKitList2[1] && Number(k.chartKitList2[1].version) === 0 && kelvor.chartkit) {
                k.chartKitList2[1].version = kelvor.chartkit.checkversion(1);
                if (k.chartKitList2[2]) k.chartKitList2[2].version = kelvor.chartkit.checkversion(2);
            }
            if (kelvor.track && kelvor.track.setTrackOn) kelvor.track.setTrackOn(k.C.i_track_on);
            if (k.V.i_traffic_ais_ip && !k.V.i_traffic_ais_ip1) {
                k.V.i_traffic_ais_ip1 = k.V.i_traffic_ais_ip;
                k.V.i_traffic_ais_port1 = k.V.i_traffic_ais_port;
            }
        } catch (e) {
            console.log("settings.load: " + e);
        }
    },

    /* ---- the chart server ------------------------------------------- */

    /* The chart server's address as the host keeps it ("host" or
    ** "host:port"), or "" when none is set or the host does not answer. */
    getChartServer: function () {
        var t = getSync("/getChartServer");
        return t === false ? "" : String(t).trim();
    },

    /* What a person may type for the address: blanks, a leading "http://"
    ** and a trailing "/" are dropped. */
    normChartServer: function (text) {
        return String(text || "").trim().replace(/^http:\/\//i, "").replace(/\/+$/, "");
    },

    /* Stores the address on the host; "" removes it. Returns true when the
    ** host took it, false when it refused the address. */
    setChartServer: function (text) {
        var s = kelvor.settings;
        return getSync("/setChartServer/" + encodeURIComponent(s.normChartServer(text))) === "OK";
    },

    saveOnly: function () {
        var s = kelvor.settings;
        postSync("/setValue/settings", JSON.stringify(s.k));
    },

    save: function () {
        var s = kelvor.settings;
        s.saveOnly();
        if (kelvor.ais) {
            kelvor.ais.onoff();
            kelvor.ais.setnmea();
        }
        s.setOther();
    },

    /* Night mode inverts the image buttons. */
    setOther: function () {
        var s = kelvor.settings;
        if (typeof document === "undefined") return;
        var list = document.getElementsByClassName("img50");
        for (var i = 0; i < list.length; i++) {
            if (s.k.C.i_night_mode) kelvor.aux.addClass(list[i], "nightMode");
            else kelvor.aux.removeClass(list[i], "nightMode");
        }
    },

    changeLang: function (lang) {
        var s = kelvor.settings;
        getSync("/getSetState/alang=" + lang);
        s.k.S.i_settings_language = lang;
        s.save();
        window.location.reload();
    },

    /* ---- unit formats -------------------------------------------------- */

    _row: function (table, key) {
        var s = kelvor.settings, r = s[table][s.k.I[key]];
        return r || s[table][0];
    },

    /* v (base units) in the unit chosen in table: the number with
    ** places(|x|) decimals, a space and the unit's name. Undefined, and a
    ** line on the console under name, when the table can't say. */
    _fmtUnit: function (name, table, v, places) {
        try {
            var r = kelvor.settings._row(table, table);
            var x = v * r[2];
            return x.toFixed(places(Math.abs(x))) + " " + r[1];
        } catch (e) {
            console.log(name + ": " + e);
        }
    },

    /* A number typed in the unit chosen in table (a comma counts as the
    ** decimal point), in base units. */
    _parseUnit: function (table, t) {
        return parseFloat(String(t).replace(",", ".")) / kelvor.settings._row(table, table)[2];
    },

    fmtSpeed: function (v) {
        return kelvor.settings._fmtUnit("fmtSpeed", "i_settings_speed", v, function (a) {
            return a < 100 ? 1 : 0;
        });
    },

    getSpeed: function (t) {
        return kelvor.settings._parseUnit("i_settings_speed", t);
    },

    fmtDeep: function (v) {
        return kelvor.settings._fmtUnit("fmtDeep", "i_settings_depth", v, function (a) {
            return a < 10 ? 2 : (a < 100 ? 1 : 0);
        });
    },

    getDeep: function (t) {
        return kelvor.settings._parseUnit("i_settings_depth", t);
    },

    fmtDist: function (v) {
        var s = kelvor.settings;
        try {
            var steps = s._row("i_settings_distance", "i_settings_distance")[1];
            for (var i = 0; i < steps.length; i++) {
                if (v >= steps[i][0]) return (v * steps[i][2]).toFixed(steps[i][3]) + "&nbsp;" + steps[i][1];
            }
            return "---";
        } catch (e) {
            console.log("fmtDist: " + e);
        }
    },

    _pad: function (t, n) {
        t = String(t);
        while (t.length < n) t = "0" + t;
        return t;
    },

    fmtGeo: function (v, positive, negative) {
        var s = kelvor.settings;
        try {
            if (v > 180) return "---";
            var f = Number(s.k.I.i_settings_geofmt);
            if (f === 0) return v.toFixed(4);
            var letter = v > 0 ? positive : negative;
            var a = Math.abs(v);
            if (f === 1) {
                var d1 = Math.floor(a);
                return d1 + "\u00b0" + s._pad(((a - d1) * 60).toFixed(3), 6) + "'" + letter;
            }
            /* one hundredth of a second on top, so 0.9999999 reads 1 */
            a += 1 / 36000000;
            var d = Math.floor(a);
            var mf = (a - d) * 60;
            var m = Math.floor(mf);
            var sec = (mf - m) * 60;
            return d + "\u00b0" + s._pad(m, 2) + "'" + s._pad(sec.toFixed(2), 5) + "\"" + letter;
        } catch (e) {
            console.log("fmtGeo: " + e);
        }
    },

    _durations: [[604800, "W"], [86400, "D"], [3600, "h"], [60, "min"], [1, "s"]],

    fmtDuration: function (v) {
        var s = kelvor.settings;
        try {
            if (!(v > 0)) return "---";
            var out = "", n = 0;
            v = Math.floor(v);
            for (var i = 0; i < s._durations.length && n < 2; i++) {
                var q = Math.floor(v / s._durations[i][0]);
                if (q > 0) {
                    out += q + s._durations[i][1] + "&nbsp;";
                    v -= q * s._durations[i][0];
                    n++;
                }
            }
            return out;
        } catch (e) {
            console.log("fmtDuration: " + e);
        }
    },

    fmtBrg: function (v) {
        try {
            if (v < 0) v += 360;
            return v.toFixed(0) + "\u00b0T";
        } catch (e) {
            console.log("fmtBrg: " + e);
        }
    },

    fmtLat: function (v) { return kelvor.settings.fmtGeo(v, "N", "S"); },
    fmtLon: function (v) { var s = kelvor.settings; return s.fmtGeo(v, s.EAST, "W"); },

    /* ---- the dialogue -------------------------------------------------- */

    /* Options from a table: an I select's value is the row number, an S
    ** select's value is the row's key. */
    _fillSelect: function (e, table, byRow) {
        if (e.options.length) return;
        for (var i = 0; i < table.length; i++) {
            var o = document.createElement("option");
            o.text = table[i][0];
            o.value = byRow ? i : table[i][1];
            e.add(o);
        }
    },

    /* Calls fn(e, key) for each key of group whose element the page has. */
    _eachInput: function (group, fn) {
        var el = kelvor.aux.el;
        for (var key in group) {
            var e = el(key);
            if (e) fn(e, key);
        }
    },

    /* Fills every element named by a key of the five groups. */
    fill: function () {
        var s = kelvor.settings, k = s.k;
        s._eachInput(k.V, function (e, key) {
            var fmt = e.getAttribute("data-fmt");
            e.value = fmt && s[fmt] ? String(s[fmt](k.V[key])).replace(/&nbsp;/g, " ").replace(/ [^ ]+$/, "") : k.V[key];
        });
        ["I", "S"].forEach(function (g) {
            s._eachInput(k[g], function (e, key) {
                if (s[key]) s._fillSelect(e, s[key], g === "I");
                e.value = String(k[g][key]);
            });
        });
        for (var key in k.R) {
            var radios = document.getElementsByName(key);
            for (var r = 0; r < radios.length; r++) radios[r].checked = String(radios[r].value) === String(k.R[key]);
        }
        s._eachInput(k.C, function (e, key) { e.checked = !!k.C[key]; });
        s._filled = true;
    },

    /* Reads every element back into the record; an empty I or S input
    ** leaves its value as it is. */
    read: function () {
        var s = kelvor.settings, k = s.k;
        s._eachInput(k.V, function (e, key) {
            var get = e.getAttribute("data-get");
            k.V[key] = get && s[get] ? s[get](e.value) : e.value;
        });
        s._eachInput(k.I, function (e, key) {
            if (e.value !== "") k.I[key] = key.charAt(0) === "i" ? Number(e.value) : e.value;
        });
        s._eachInput(k.S, function (e, key) {
            if (e.value !== "") k.S[key] = isNaN(Number(e.value)) ? e.value : Number(e.value);
        });
        for (var key in k.R) {
            var radios = document.getElementsByName(key);
            for (var r = 0; r < radios.length; r++) if (radios[r].checked) k.R[key] = Number(radios[r].value);
        }
        s._eachInput(k.C, function (e, key) { k.C[key] = !!e.checked; });
    },

    showTab: function (tab) {
        var tabs = ["np_settings_chart", "np_settings_common", "np_settings_boat", "np_settings_ais"];
        for (var i = 0; i < tabs.length; i++) kelvor.aux.show(tabs[i], tabs[i] === tab);
    },

    /* show(false) only fills the inputs; show(tab) also opens the dialogue
    ** on that tab. The inputs are filled once: after that they keep what
    ** the user left in them, and done() reads them back. */
    show: function (tab) {
        var s = kelvor.settings;
        if (!s._filled) s.fill();
        if (tab === false) return;
        /* the chart server's field shows what the host has each time */
        var srv = kelvor.aux.el("i_chart_server");
        if (srv) srv.value = s.getChartServer();
        s._serverError(false);
        s.showTab(tab || "np_settings_chart");
        cpApp.sizeDialog(kelvor.aux.el("np_settings_dlg"));
    },

    /* The network feed is one of the three hosts the dialogue keeps; the
    ** network source selection picks which, and the host is told only
    ** the picked address and port. */
    pickHost: function () {
        var s = kelvor.settings, V = s.k.V, n = Number(s.k.I.i_wifi_source);
        n = n >= 0 && n <= 2 ? Math.floor(n) + 1 : 1;
        V.i_traffic_ais_ip = String(V["i_traffic_ais_ip" + n] || "").trim();
        V.i_traffic_ais_port = String(V["i_traffic_ais_port" + n] || "").trim();
    },

    _serverError: function (on) {
        kelvor.aux.show("i_chart_server_error", on);
    },

    /* Stores a changed chart server address. An address the host refuses
    ** keeps the dialogue open on the Chart tab with the field marked, so
    ** nothing the user typed is lost. Returns false then. */
    _doneChartServer: function () {
        var s = kelvor.settings, srv = kelvor.aux.el("i_chart_server");
        if (!srv) return true;
        var v = s.normChartServer(srv.value);
        var same = v === s.getChartServer();
        if (same || s.setChartServer(v)) {
            srv.value = v;
            s._serverError(false);
            /* the new server's list gives the count of new kits */
            if (!same && kelvor.chartkit) kelvor.chartkit.checkForNewMaps(true);
            return true;
        }
        s.showTab("np_settings_chart");
        s._serverError(true);
        srv.focus();
        return false;
    },

    done: function () {
        var s = kelvor.settings, lang = s.k.S.i_settings_language;
        if (!s._doneChartServer()) return;
        /* inputs never filled would read back as the page's blanks */
        if (!s._filled) s.fill();
        s.read();
        s.pickHost();
        if (cpApp && cpApp.activeDialog && cpApp.activeDialog.id === "np_settings_dlg") cpApp.closeDlg();
        if (cpApp) cpApp.changeScreenSize(s.k.S.i_settings_screensize);
        if (kelvor.track && kelvor.track.setTrackOn) kelvor.track.setTrackOn(s.k.C.i_track_on);
        s.save();
        if (cpApp && cpApp.map) cpApp.map.update(true);
        if (s.k.S.i_settings_language !== lang) s.changeLang(s.k.S.i_settings_language);
    },

    _filled: false
};

/* The host record is read when the script loads; without it the client
** cannot start, and nothing catches that on purpose. */
kelvor.settings.setHost(JSON.parse(getSync("/hostversion")));
kelvor.settings.k = kelvor.settings.defaults();
