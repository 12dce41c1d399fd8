/*
** kelvor.ais.js: AIS targets.
**
** The host queues one row per decoded message and forgets it; this module
** keeps the targets. Each status reply merges its rows into `ais_elem`
** (keyed by MMSI), works out bearing, range and CPA against the own boat,
** and refreshes the target list and an open target dialog. The render pass
** draws vessels, aids to navigation and AIS SARTs, ages them (grey when
** stale, gone after 900 seconds) and raises the SART alert. A remote
** position service adds other users of the application as targets.
*/

kelvor.ais = {
    SHIPTYPE: null,
    ais_elem: {},
    /* lists of an older form of the module; kept for clear() */
    aisList: [],
    aisListSorted: [],
    aisuserid: 0,
    openShip: false,
    moreInfo: false,
    reportTimer: null,
    reporting: false,
    /* the one hit-test marker moved over all records */
    aismarker: { x: 0, y: 0, isAis: true },

    /* Age after which a record is removed, unless it is an aid (21) or a
    ** fairway marker (msgid above 200). */
    MAXAGE: 900,

    NAVSTAT: ["Under way using engine", "At anchor", "Not under command", "Restricted manoeuverability",
        "Constrained by her draught", "Moored", "Aground", "Engaged in Fishing", "Under way sailing", "9", "10",
        "power-driven vessel towing astern", "power-driven vessel pushing ahead or towing alongsid", "13",
        "AIS-SART(active)", "undefined"],

    clear: function () {
        kelvor.ais.aisList = [];
        kelvor.ais.aisListSorted = [];
    },

    /* Starts or stops the once-a-minute position report with its setting. */
    onoff: function () {
        var a = kelvor.ais;
        a.reporting = !!kelvor.settings.k.C.i_traffic_mrapp_report;
        if (a.reporting && !a.reportTimer) {
            a.reportTimer = window.setInterval(a.report, 60000);
        } else if (!a.reporting && a.reportTimer) {
            window.clearInterval(a.reportTimer);
            a.reportTimer = null;
        }
    },

    /* Tells the host the input settings; a negative answer opens the
    ** internet error dialog and falls back to no source. */
    setnmea: function () {
        var k = kelvor.settings.k;
        var uid = Number(k.I.i_gps_source) === 2 ? kelvor.ais.aisuserid : 0;
        var r = getSync("/setNmeaMode/" + k.I.i_gps_intern + "/" + k.I.i_gps_source + "/" +
            k.I.i_nmea_source + "/" + encodeURIComponent(k.V.i_traffic_ais_ip || "") + "/" +
            encodeURIComponent(k.V.i_traffic_ais_port || "") + "/" + uid);
        if (r !== false && parseInt(r, 10) < 0) {
            if (cpApp) cpApp.sizeDialog(kelvor.aux.el("np_chartkit_ineterror"));
            k.I.i_traffic_ais_source = 0;
            kelvor.settings.saveOnly();
        }
    },

    /* ---- geometry helpers ---------------------------------------------- */

    /* Great-circle distance in metres between two lat/lon pairs. */
    geoDist: function (lat1, lon1, lat2, lon2) { return kelvor.geo.dist(lat1, lon1, lat2, lon2); },

    boatLatLon: function () {
        var tb = kelvor.boat.theBoat, a = kelvor.ais;
        return { lat: kelvor.geo.y2lat(tb.y), lon: kelvor.geo.x2lon(tb.x) };
    },

    /* Hands the own boat to the fairway; xf is how many cross-track limits
    ** count as on the fairway. */
    _setBoat: function (xf) {
        var b = kelvor.boat, g = b.gps || {}, nr = kelvor.chartkit.navrte, k = kelvor.settings.k;
        if (!nr) return null;
        var ll = kelvor.ais.boatLatLon();
        nr.setBoat(Math.round(b.theBoat.x), Math.round(b.theBoat.y), Number(g.sog) || 0, Number(g.cog) || 0,
            Number(k.S.i_settings_xte_max) * xf, Math.cos(ll.lat * kelvor.geo.RAD));
        return nr;
    },

    /* Bearing (degrees, -180..180) and range (metres) of a record from the
    ** boat. */
    _brgRng: function (e) {
        var a = kelvor.ais, tb = kelvor.boat.theBoat, ll = a.boatLatLon();
        e.brg = Math.atan2(e.X - tb.x, tb.y - e.Y) / kelvor.geo.RAD;
        e.rng = a.geoDist(ll.lat, ll.lon, e.lat, e.lon);
    },

    /* ---- rows ----------------------------------------------------------- */

    /* Status hook kept from the first form of the module. */
    update: function (rows) {
        var g = kelvor.boat.gps || {};
        kelvor.ais.setAisData({ ais: rows, aisuserid: g.aisuserid });
    },

    /*
    ** Merges one row into its record (the MMSI already taken off). Returns
    ** the record. Columns as the host writes them: position rows for 1, 2,
    ** 3, 9, 18; static rows for 5, 19, 21, 24; base rows for 4.
    */
    applyRow: function (mmsi, r, now) {
        var a = kelvor.ais, e = a.ais_elem[mmsi];
        if (!e) {
            e = a.ais_elem[mmsi] = { user: mmsi, msgid: r[0], name: String(mmsi), track: [] };
        }
        e.time = now;
        e.aistime = r[1];
        var id = r[0];
        switch (id) {
        case 1: case 2: case 3: case 9: case 18:
            e.X = r[2];
            e.Y = r[3];
            e.sog = r[4] * 0.0514444444;
            e.cog = r[5] / 10;
            e.hdg = r[6];
            e.rot = r[7];
            e.stat = r[8];
            if (e.X && e.Y) e.track.push([now, e.X, e.Y]);
            e.isB = id === 18;
            break;
        case 5: case 19: case 21: case 24:
            /* message 5 and 24 carry no position: 0, 0 is no place */
            if (r[2] && r[3]) {
                e.X = r[2];
                e.Y = r[3];
            }
            e.callsign = r[4];
            if (r[5]) e.name = r[5];
            e.shiptype = r[6];
            e.dest = r[7];
            e.eta = r[8];
            e.bow = r[9];
            e.stern = r[10];
            e.port = r[11];
            e.starboard = r[12];
            e.draught = r[13];
            if (r.length > 14) e.imo = r[14];
            e.isB = id === 19 || id === 24;
            if (id === 19 && e.X && e.Y) e.track.push([now, e.X, e.Y]);
            break;
        case 4:
            e.X = r[2];
            e.Y = r[3];
            e.isB = false;
            break;
        default:
            console.log("ais: message " + id + " not handled");
            return e;
        }
        if (e.X !== undefined) {
            e.lon = kelvor.geo.x2lon(e.X);
            e.lat = kelvor.geo.y2lat(e.Y);
        }
        return e;
    },

    /* Bearing, range, CPA and the display texts of a record. */
    _compute: function (e, nr) {
        var s = kelvor.settings;
        if (nr) {
            var c = nr.cpa(e.X, e.Y, e.sog || 0, e.cog || 0);
            e.CPA = c.CPA;
            e.cpa = e.showEncounter && c.CPA ? c : false;
        }
        kelvor.ais._brgRng(e);
        e.SOG = e.sog ? s.fmtSpeed(e.sog) : "n/a";
        e.COG = e.cog ? s.fmtBrg(e.cog) : "n/a";
    },

    /* Merges the rows of one status reply, then refreshes the open dialog
    ** and the list. A bad row stops the batch but not the refresh. */
    setAisData: function (gps) {
        var a = kelvor.ais;
        var now = kelvor.boat.loctime || new Date().gT();
        try {
            var nr = a._setBoat(2);
            var rows = (gps && gps.ais) || [];
            for (var i = 0; i < rows.length; i++) {
                var r = rows[i].slice();
                var mmsi = r.shift();
                var e = a.applyRow(mmsi, r, now);
                if (e.X === undefined) continue;
                a._compute(e, nr);
            }
            if (a.openShip) a.showStatus(a.openShip, true);
        } catch (ex) {
            console.log("ais: " + (ex && ex.stack ? ex.stack : ex));
        }
        kelvor.ais.fillAisList(gps ? gps.aisuserid : 0);
    },

    /* Targets of the remote position service: an array or a map of
    ** { uid, source, showtime, lon, lat, cog, sog, descr }. */
    setRemote: function (list) {
        var a = kelvor.ais;
        for (var key in list) {
            if (!Object.prototype.hasOwnProperty.call(list, key)) continue;
            var o = list[key];
            if (!o || o.uid === undefined) continue;
            var e = a.ais_elem[o.uid];
            if (!e) e = a.ais_elem[o.uid] = { user: o.uid, msgid: Number(o.source), track: [] };
            e.time = Number(o.showtime);
            e.lon = Number(o.lon);
            e.lat = Number(o.lat);
            e.X = Math.round(kelvor.geo.lon2x(e.lon));
            e.Y = Math.round(kelvor.geo.lat2y(e.lat));
            e.cog = Number(o.cog);
            e.sog = Number(o.sog);
            e.hdg = 511;
            e.name = o.descr;
        }
    },

    /* The once-a-minute report of the own position; without a fix nothing
    ** is sent, and with no server the request fails quietly. */
    report: function () {
        var g = kelvor.boat.gps || {}, k = kelvor.settings.k, host = kelvor.settings.host || {};
        if (!g.fix) return;
        var txt = [String(host.device || "") + "-" + k.userid, g.lonX, g.latY, g.sog, g.cog, g.fix,
            k.I.i_gps_source, kelvor.boat.loctime].join(",");
        var auth = getSync("/getAuth/" + encodeURIComponent(txt));
        var url = AJAXSERVER + "?mrpos=" + encodeURIComponent(txt) + "&descr=" +
            encodeURIComponent(k.V.i_settings_boat_name || "") + "&a=" + encodeURIComponent(auth || "");
        getAsync(url, function (r) {
            if (r === false) return;
            try {
                kelvor.ais.setRemote(JSON.parse(r));
            } catch (ex) {
                console.log("ais report: " + ex);
            }
        });
    },

    /* Fairway markers of the chart kit's overlay. */
    addMarker: function (m) {
        var a = kelvor.ais, G = kelvor.geo, lat = Number(m.lat), lon = Number(m.lon);
        var X = m.x !== undefined ? m.x : Math.round(G.lon2x(lon));
        var Y = m.y !== undefined ? m.y : Math.round(G.lat2y(lat));
        a.ais_elem["RTEMRK" + m._ID] = {
            user: "RTEMRK" + m._ID, msgid: 201, time: 0, sog: 0, cog: 0, hdg: 511, name: m.NAME,
            X: X, Y: Y, lon: G.x2lon(X), lat: G.y2lat(Y), track: []
        };
    },

    /* ---- texts ---------------------------------------------------------- */

    /* Whether a record's class is shown by the settings. */
    classShown: function (e) {
        var C = kelvor.settings.k.C;
        return (C.i_traffic_ais_showClassA && e.isB === false) ||
            (C.i_traffic_ais_showClassB && e.isB === true) ||
            (C.i_traffic_mrapp_report && e.msgid > 100 && e.msgid !== 201);
    },

    navStatus: function (e) {
        if (e.stat === 15 && String(e.user).substring(0, 2) === "97") return "AIS SART TEST";
        var t = kelvor.ais.NAVSTAT[e.stat];
        return t === undefined ? String(e.stat) : t;
    },

    shipType: function (t) {
        var a = kelvor.ais;
        if (!a.SHIPTYPE) a.SHIPTYPE = a._shipTypeTable();
        var v = a.SHIPTYPE[t - 20];
        return v === undefined ? String(t) : v;
    },

    /* The packed ETA: month, day, hour, minute fields. The minute keeps
    ** five bits only and the month goes to the date constructor as it
    ** stands, which counts months from 0: both as the display has always
    ** shown them. */
    etaUnpack: function (eta, year) {
        var mon = (eta >> 16) & 15, day = (eta >> 11) & 31, h = (eta >> 6) & 31, min = eta & 31;
        return new Date(year, mon, day, h, min);
    },

    /* Minutes and seconds since the last row. */
    mkage: function (e) {
        var s = (kelvor.boat.loctime || new Date().gT()) - e.time;
        if (!(s > 0)) s = 0;
        return Math.floor(s / 60) + ":" + (s % 60 < 10 ? "0" : "") + (s % 60);
    },

    /* Text of a label choice 0..8; RNG and BRG read fields that are never
    ** filled and so stay empty. */
    labelText: function (e, n) {
        var t;
        switch (Number(n)) {
        case 1: t = e.name; break;
        case 2: t = kelvor.settings.fmtDuration((kelvor.boat.loctime || 0) - e.time) || "0s"; break;
        case 3: t = e.SOG; break;
        case 4: t = e.COG; break;
        case 5: t = e.CPA; break;
        case 6: t = e.RNG; break;
        case 7: t = e.BRG; break;
        case 8: t = e.callsign; break;
        default: t = "";
        }
        if (t === "---") t = "0s";
        return t ? String(t).split("&nbsp;").join(" ") : "";
    },

    /* ---- drawing -------------------------------------------------------- */

    render: function (ctx) {
        var a = kelvor.ais, k = kelvor.settings.k, now = kelvor.boat.loctime || new Date().gT();
        var f = ctx.scm, x0 = ctx.cxzero, y0 = ctx.cyzero;
        var meterpixel = ctx.mapScale / 4000;
        var tlen = Number(k.S.i_traffic_ais_track_length);
        ctx.save();
        ctx.font = "bold 14px sans-serif";
        ctx.textAlign = "center";
        if (meterpixel < 50 && tlen > 0) {
            ctx.strokeStyle = "#f00";
            ctx.lineWidth = 1;
            for (var key in a.ais_elem) {
                var t = a.ais_elem[key].track;
                if (!t) continue;
                while (t.length > 1 && t[0][0] < now - tlen) t.shift();
                if (t.length > 1 && a.classShown(a.ais_elem[key])) {
                    ctx.beginPath();
                    ctx.moveTo(t[0][1] * f - x0, t[0][2] * f - y0);
                    for (var j = 1; j < t.length; j++) ctx.lineTo(t[j][1] * f - x0, t[j][2] * f - y0);
                    ctx.stroke();
                }
            }
        }
        for (var id in a.ais_elem) {
            var e = a.ais_elem[id];
            if (now - e.time < a.MAXAGE || e.msgid > 200 || e.msgid === 21) {
                if (a.classShown(e) || e.msgid > 200) a.renderItem(e, ctx, meterpixel, now);
            } else {
                delete a.ais_elem[id];
            }
            if (e.showEncounter && e.cpa) a.renderCPA(e, ctx);
        }
        ctx.restore();
    },

    renderItem: function (e, ctx, mp, now) {
        var a = kelvor.ais;
        if (e.X === undefined) return;
        if (e.msgid === 4 || e.msgid === 21) {
            a.renderNavAid(e, ctx, mp);
        } else if ((e.stat === 14 || e.stat === 15) && String(e.user).substring(0, 2) === "97") {
            if (e.stat === 14 && !e.confirmed) a.sartAlert(e);
            if (e.stat === 15) e.confirmed = false;
            a.renderSart(e, ctx);
        } else {
            a.renderBoat(e, ctx, mp, now);
        }
    },

    _label: function (ctx, txt, x, y) {
        if (!txt) return;
        ctx.strokeText(txt, x, y);
        ctx.fillText(txt, x, y);
    },

    /* Grey when the last row is older than 60 s for a ship above 1.5 m/s,
    ** 240 s for a slower one. */
    isStale: function (e, now) {
        return e.time < now - (e.sog > 1.5 ? 60 : 240);
    },

    renderBoat: function (e, ctx, mp, now) {
        var a = kelvor.ais, k = kelvor.settings.k, night = k.C.i_night_mode;
        var px = e.X * ctx.scm - ctx.cxzero, py = e.Y * ctx.scm - ctx.cyzero;
        var own = kelvor.boat.gps && e.user === kelvor.boat.gps.aisuserid && e.user !== 0;
        ctx.strokeStyle = night ? "#ccc" : "#000";
        if (e.msgid < 100) {
            if (own) ctx.fillStyle = "rgba(255,84,0,0.4)";
            else if (!a.isStale(e, now)) ctx.fillStyle = e.isB ? "rgba(0,204,153,0.4)" : "rgba(0,0,255,0.4)";
            else {
                ctx.strokeStyle = "#666";
                ctx.fillStyle = "rgba(128,128,128,0.4)";
            }
        } else {
            ctx.fillStyle = "rgba(0,204,102,0.2)";
        }
        var len = (e.bow || 0) + (e.stern || 0), beam = (e.port || 0) + (e.starboard || 0);
        var sized = len > 0 && beam > 0;
        var hd = e.hdg !== 511 && e.hdg !== undefined ? e.hdg : (e.cog ? e.cog : null);
        ctx.save();
        ctx.translate(px, py);
        if (hd === null) {
            ctx.setLineDash([5, 5]);
        } else {
            ctx.rotate(hd * kelvor.geo.RAD + Math.PI);
        }
        ctx.beginPath();
        if (!sized || len / mp < 30 || hd === null) {
            ctx.lineWidth = 2;
            ctx.moveTo(0, 17);
            ctx.lineTo(7, -7);
            ctx.lineTo(-7, -7);
            ctx.closePath();
            ctx.fill();
            ctx.stroke();
        } else {
            /* hull to scale around the reference point. The frame is turned
            ** by heading plus a half turn, so the bow lies toward +y and
            ** starboard toward -x. */
            var bw = e.bow / mp, st = e.stern / mp, pt = e.port / mp, sb = e.starboard / mp;
            var d = 0.4 * beam / mp;
            ctx.lineWidth = own ? 2 : 1;
            ctx.moveTo(-sb, -st);
            ctx.lineTo(-sb, bw - d);
            ctx.lineTo((pt - sb) / 2, bw);
            ctx.lineTo(pt, bw - d);
            ctx.lineTo(pt, -st);
            ctx.closePath();
            ctx.fill();
            ctx.stroke();
            ctx.beginPath();
            ctx.arc(0, 0, 3, 0, 2 * Math.PI);
            ctx.stroke();
        }
        ctx.restore();
        a.renderPredictor(e, ctx, px, py, mp);
        if (mp < 50) {
            var k1 = k.S.i_traffic_ais_marker_text_1, k2 = k.S.i_traffic_ais_marker_text_2;
            ctx.save();
            ctx.translate(px, py);
            ctx.rotate((hd || 0) * kelvor.geo.RAD + (Math.sin((hd || 0) * kelvor.geo.RAD) >= 0 ? -Math.PI / 2 : Math.PI / 2));
            ctx.setLineDash([]);
            ctx.lineWidth = 1.5;
            ctx.strokeStyle = "#fff";
            ctx.fillStyle = "#000";
            a._label(ctx, a.labelText(e, k1), 0, -10);
            a._label(ctx, a.labelText(e, k2), 0, 17);
            ctx.restore();
        }
    },

    /* The course predictor: a straight line of sog times the predictor
    ** time, plus an arc of the turn when the rate of turn is known. */
    renderPredictor: function (e, ctx, px, py, mp) {
        var k = kelvor.settings.k, pt = Number(k.S.i_traffic_ais_predictor);
        if (!(e.sog > 0 && e.sog < 1023) || !(pt > 0)) return;
        var rot = e.rot === undefined ? -128 : e.rot;
        var q = rot / 4.733;
        var rate = Math.abs(rot) === 128 ? 0 : (q * Math.abs(q)) / 60 * kelvor.geo.RAD;
        var l = e.sog * pt / mp;
        ctx.save();
        ctx.translate(px, py);
        ctx.rotate((e.cog || 0) * kelvor.geo.RAD);
        ctx.setLineDash([]);
        ctx.lineWidth = 1;
        ctx.beginPath();
        ctx.moveTo(0, 0);
        ctx.lineTo(0, -l);
        ctx.stroke();
        if (Math.abs(rate * pt) > 0.00001 && Math.abs(rot) !== 127) {
            var r = Math.abs(e.sog / rate) / mp, turn = Math.min(Math.abs(rate * pt), Math.PI * 2);
            ctx.beginPath();
            if (rate > 0) ctx.arc(r, 0, r, Math.PI, Math.PI + turn, false);
            else ctx.arc(-r, 0, r, 0, -turn, true);
            ctx.stroke();
        }
        ctx.restore();
    },

    renderNavAid: function (e, ctx, mp) {
        var px = e.X * ctx.scm - ctx.cxzero, py = e.Y * ctx.scm - ctx.cyzero;
        ctx.save();
        ctx.setLineDash([]);
        ctx.strokeStyle = "#00f";
        ctx.fillStyle = e.msgid < 100 ? "rgba(0,0,255,0.2)" : "rgba(0,0,0,0)";
        ctx.lineWidth = 1;
        var w = 8, h = 8, sw = ((e.port || 0) + (e.starboard || 0)) / mp, sh = ((e.bow || 0) + (e.stern || 0)) / mp;
        if (sw >= 20) w = sw / 2;
        if (sh >= 20) h = sh / 2;
        ctx.fillRect(px - w, py - h, 2 * w, 2 * h);
        ctx.strokeRect(px - w, py - h, 2 * w, 2 * h);
        ctx.beginPath();
        ctx.arc(px, py, 3, 0, 2 * Math.PI);
        ctx.stroke();
        if (mp < 50) {
            ctx.lineWidth = 1.5;
            ctx.strokeStyle = "#fff";
            ctx.fillStyle = "#000";
            if (e.msgid === 4) {
                kelvor.ais._label(ctx, String(e.user), px, py + 25);
                kelvor.ais._label(ctx, new Date(e.aistime * 1000).toLocaleTimeString(), px, py + 40);
            } else {
                kelvor.ais._label(ctx, e.name, px, py + 25);
            }
        }
        ctx.restore();
    },

    renderSart: function (e, ctx) {
        var px = e.X * ctx.scm - ctx.cxzero, py = e.Y * ctx.scm - ctx.cyzero;
        ctx.save();
        ctx.setLineDash([]);
        ctx.strokeStyle = "#f00";
        ctx.fillStyle = "rgba(255,0,0,0.2)";
        ctx.lineWidth = 2;
        ctx.beginPath();
        ctx.arc(px, py, 12, 0, 2 * Math.PI);
        ctx.fill();
        ctx.stroke();
        ctx.beginPath();
        ctx.moveTo(px - 10, py - 10);
        ctx.lineTo(px + 10, py + 10);
        ctx.moveTo(px + 10, py - 10);
        ctx.lineTo(px - 10, py + 10);
        ctx.stroke();
        ctx.lineWidth = 1.5;
        ctx.strokeStyle = "#fff";
        ctx.fillStyle = "#f00";
        kelvor.ais._label(ctx, e.stat === 15 ? "AIS SART TEST" : "AIS SART (active)", px, py + 28);
        kelvor.ais._label(ctx, new Date(e.time * 1000).toLocaleTimeString(), px, py + 44);
        ctx.restore();
        if (e.sartMarker) {
            e.sartMarker.x = e.X;
            e.sartMarker.y = e.Y;
        }
    },

    /* ---- SART ----------------------------------------------------------- */

    sartTarget: false,

    sartAlert: function (e) {
        e.confirmed = true;
        kelvor.ais.sartTarget = e;
        kelvor.alarm.klaxon(1);
        cpApp.yesno("AIS SART EMERGENY<br><br><b>Set as MOB Marker?</b>", "kelvor.ais.sartAlertAction()",
            "kelvor.ais.sartNo()");
    },

    /* "No" only pauses the sound; the klaxon timer plays again within a
    ** second until an alarm is switched off. */
    sartNo: function () {
        var au = kelvor.aux.el("klaxon");
        if (au) au.pause();
    },

    sartAlertAction: function () {
        var e = kelvor.ais.sartTarget;
        kelvor.alarm.klaxon(0);
        if (!e) return;
        if (kelvor.marker.sart) {
            e.sartMarker = kelvor.marker.sart(e) || false;
        } else {
            e.sartMarker = kelvor.ais.makeSartMarker(e);
        }
    },

    /* A man-overboard style marker at the target, for a marker module that
    ** has no sart() of its own. */
    makeSartMarker: function (e) {
        var m = new kelvor.marker(e.X, e.Y, "img/icon-50-marker-sos.png");
        m.name = "AIS SART " + e.user;
        m.txt = m.name;
        m.x = e.X;
        m.y = e.Y;
        m.locked = true;
        m.noauto = true;
        m.s = 10000;
        m.type = 4;
        if (kelvor.marker.markerList && kelvor.marker.markerList.indexOf(m) < 0) kelvor.marker.markerList.push(m);
        if (kelvor.marker.list && kelvor.marker.list.indexOf(m) < 0) kelvor.marker.list.push(m);
        kelvor.boat.activeWayPoint = m;
        kelvor.boat.log(4, m.name);
        kelvor.ais.mobMarker = m;
        return m;
    },

    /* ---- encounter ------------------------------------------------------ */

    _arrow: function (ctx, x1, y1, x2, y2, len) {
        var dx = x2 - x1, dy = y2 - y1, l = Math.sqrt(dx * dx + dy * dy) || 1;
        ctx.beginPath();
        ctx.moveTo(x1, y1);
        ctx.lineTo(x1 + dx / l * len, y1 + dy / l * len);
        ctx.stroke();
    },

    renderCPA: function (e, ctx) {
        var c = e.cpa, nr = kelvor.chartkit.navrte, f = ctx.scm, x0 = ctx.cxzero, y0 = ctx.cyzero;
        if (!c) return;
        ctx.save();
        ctx.setLineDash([]);
        ctx.lineWidth = 3;
        ctx.strokeStyle = "#ff0";
        ctx.fillStyle = "#ff0";
        var tx, ty;
        if (c.run !== undefined) {
            var p = nr.getXY(c.run + c.sog * c.tcpa * c.dir);
            if (!p) {
                ctx.restore();
                return;
            }
            var mx = p.x * f - x0, my = p.y * f - y0;
            if (e.msgid < 200) this._arrow(ctx, mx, my, mx + p.dx * 100 * c.dir, my + p.dy * 100 * c.dir, 100);
            var half = nr.maxDist / nr.refLat * f;
            ctx.beginPath();
            ctx.moveTo(mx - p.dy * half, my + p.dx * half);
            ctx.lineTo(mx + p.dy * half, my - p.dx * half);
            ctx.stroke();
            tx = mx;
            ty = my;
        } else {
            var rl = nr.refLat || 1;
            var ox = (c.c.x + c.X / rl) * f - x0, oy = (c.c.y + c.Y / rl) * f - y0;
            var r = e.sog * c.tcpa, cr = (e.cog || 0) * kelvor.geo.RAD;
            var qx = (e.X + Math.sin(cr) * r / rl) * f - x0, qy = (e.Y - Math.cos(cr) * r / rl) * f - y0;
            ctx.beginPath();
            ctx.moveTo(ox, oy);
            ctx.lineTo(qx, qy);
            ctx.stroke();
            tx = (ox + qx) / 2;
            ty = (oy + qy) / 2;
            this._arrow(ctx, tx, ty, e.X * f - x0, e.Y * f - y0, 100);
        }
        ctx.font = "bold 14px sans-serif";
        ctx.textAlign = "center";
        var t1 = String(e.name || e.user), t2 = String(e.CPA || "").split("&nbsp;").join(" ");
        ctx.fillStyle = "#000";
        var w = Math.max(ctx.measureText(t1).width, ctx.measureText(t2).width) + 8;
        ctx.fillRect(tx - w / 2, ty - 20, w, 40);
        ctx.fillStyle = "#ff0";
        ctx.fillText(t1, tx, ty - 5);
        ctx.fillText(t2, tx, ty + 15);
        ctx.restore();
    },

    /* ---- hit tests and dialogs ----------------------------------------- */

    find: function (so) {
        var a = kelvor.ais, best = false, bd = so.d;
        for (var id in a.ais_elem) {
            var e = a.ais_elem[id];
            if (e.X === undefined || !(a.classShown(e) || e.msgid > 200)) continue;
            var d = Math.sqrt((e.X - so.p.x) * (e.X - so.p.x) + (e.Y - so.p.y) * (e.Y - so.p.y));
            if (d < bd) {
                bd = d;
                best = e;
            }
        }
        if (best) {
            var m = a.aismarker;
            m.x = best.X;
            m.y = best.Y;
            m.e = best;
            m.onUp = function () { kelvor.ais.showStatus(best.user); };
            so.d = bd;
            so.o = m;
        }
    },

    /* "Near Me": targets whose squared distance is below r, so within the
    ** square root of r metres. Entries as the gazetteer gives them: text n
    ** (characters 5 and 4 of the key), class c (the MMSI), place x, y. */
    findByRange: function (x, y, r) {
        var a = kelvor.ais, out = [];
        /* a Near Me row of a target opens the target's dialogue */
        function openNear() { kelvor.ais.showStatus(this.id); }
        for (var id in a.ais_elem) {
            var e = a.ais_elem[id];
            if (e.X === undefined) continue;
            var d2 = (e.X - x) * (e.X - x) + (e.Y - y) * (e.Y - y);
            if (d2 < r) {
                var key = String(id);
                out.push({ n: key.charAt(5) + key.charAt(4), c: e.user, x: e.X, y: e.Y, e: e, id: id, onUp: openNear });
            }
        }
        return out;
    },

    goAis: function (id) {
        var e = kelvor.ais.ais_elem[id];
        if (!e || e.X === undefined) return;
        kelvor.boat.cruiseMode(0);
        cpApp.map.setCenter(e.X, e.Y);
        cpApp.update();
    },

    moreless: function () {
        var a = kelvor.ais;
        a.moreInfo = !a.moreInfo;
        if (a.openShip) a.showStatus(a.openShip, true);
    },

    encounterChanged: function (box) {
        var a = kelvor.ais, e = a.ais_elem[a.openShip];
        if (!e) return;
        e.showEncounter = !!box.checked;
        a._compute(e, a._setBoat(2));
        cpApp.update();
    },

    makeMyVessel: function () {
        var a = kelvor.ais;
        a.aisuserid = Number(a.openShip) || 0;
        a.setnmea();
        cpApp.closeDlg();
    },

    /* Rows of the target dialog: [label, value, onlyInMore]. */
    statusRows: function (e) {
        var a = kelvor.ais, s = kelvor.settings, rows = [];
        var esc = kelvor.aux.esc;
        if (String(e.name) !== String(e.user)) rows.push(["Name", esc(e.name), false]);
        rows.push(["Callsign", esc(e.callsign), false]);
        if (e.bow !== undefined) rows.push(["Length", (e.bow + e.stern) + " m", false]);
        if (e.port !== undefined) rows.push(["Beam", (e.port + e.starboard) + " m", false]);
        if (e.draught !== undefined) rows.push(["Draught", (e.draught / 10) + " m", false]);
        rows.push(["HDG", e.hdg === 511 || e.hdg === undefined ? "n/a" : s.fmtBrg(e.hdg), true]);
        rows.push(["COG", e.COG, true]);
        rows.push(["Speed", e.SOG, true]);
        rows.push(["Rate Of Turn", e.rot === undefined || Math.abs(e.rot) === 128 ? "n/a" : String(e.rot), true]);
        rows.push(["CPA", e.CPA || "---", true]);
        rows.push(["MMSI", String(e.user), true]);
        if (e.imo !== undefined) rows.push(["IMO#", String(e.imo), true]);
        if (e.lat !== undefined) rows.push(["Position", s.fmtGeo(e.lat, "N", "S") + " " + s.fmtGeo(e.lon, "W", "E"), false]);
        rows.push(["Age", a.mkage(e), false]);
        if (e.stat !== undefined) rows.push(["Status Navigation", a.navStatus(e), false]);
        if (e.dest !== undefined) rows.push(["Destination", esc(e.dest), false]);
        if (e.eta) rows.push(["ETA", a.etaUnpack(e.eta, new Date().getFullYear()).toLocaleString(), false]);
        if (e.shiptype !== undefined) rows.push(["Ship Type", a.shipType(e.shiptype), false]);
        return rows;
    },

    /* Opens (or, with refresh, rewrites) the dialog of one target. */
    showStatus: function (id, refresh) {
        var a = kelvor.ais, e = a.ais_elem[id], k = kelvor.settings.k;
        var dlg = kelvor.aux.el("np_ais_status_dlg");
        if (!e || !dlg) return;
        a.openShip = id;
        var rows = a.statusRows(e), h = "<h2>Ais Information</h2>";
        h += "<table class=\"np_table\"><tr><td>" + "Show encounter" + "</td><td><input type=\"checkbox\" id=\"i_ais_encounter\"" +
            (e.showEncounter ? " checked" : "") + " onchange=\"kelvor.ais.encounterChanged(this)\"></td></tr>";
        for (var i = 0; i < rows.length; i++) {
            if (rows[i][2] && !a.moreInfo) continue;
            h += "<tr><td>" + rows[i][0] + "</td><td>" + (rows[i][1] === undefined ? "" : rows[i][1]) + "</td></tr>";
        }
        h += "</table><div class=\"btn_row\"><button type=\"button\" id=\"btn_ais_more\" onclick=\"kelvor.ais.moreless()\">" +
            (a.moreInfo ? "Less" : "More") + "</button>";
        if (Number(k.I.i_gps_source) === 2) {
            h += " <button type=\"button\" id=\"btn_ais_myvessel\" onclick=\"kelvor.ais.makeMyVessel()\">" + "Make this my vessel" + "</button>";
        }
        h += "</div>";
        dlg.children[0].innerHTML = h;
        if (!refresh) {
            cpApp.sizeDialog(dlg);
            cpApp.onClose = function () { kelvor.ais.openShip = false; };
        }
    },

    /* Ship type texts for types 20 to 100, built from groups of ten. */
    _shipTypeTable: function () {
        function group(head, last) {
            var g = [head + "all ships of this type", head + "Hazardous category A", head + "Hazardous category B",
                head + "Hazardous category C", head + "Hazardous category D"];
            for (var i = 5; i < 9; i++) g.push(head + "Reserved for future use");
            g.push(last || head + "Reserved for future use");
            return g;
        }
        var t = group("Wing in ground (WIG), ");
        t = t.concat(["Fishing", "Towing", "Towing: length exceeds 200m or breadth exceeds 25m", "Dredging or underwater ops",
            "Diving ops", "Military ops", "Sailing", "Pleasure Craft", "Reserved", "Reserved"]);
        t = t.concat(group("High speed craft (HSC), ", "High speed craft (HSC), No additional information"));
        t = t.concat(["Pilot Vessel", "Search and Rescue vessel", "Tug", "Port Tender", "Anti-pollution equipment",
            "Law Enforcement", "Spare - Local Vessel", "Spare - Local Vessel", "Medical Transport",
            "Noncombatant ship according to RR Resolution No.60"]);
        t = t.concat(group("Passenger, "), group("Cargo, "), group("Tanker, "),
            group("Other Type, ", "Other Type, no additional information"));
        t.push("Pleasure Craft, MrAppUser");
        return t;
    },

    /*
    ** Presses on the target list. The list is rebuilt every second, so an
    ** entry's element may be replaced under a resting pointer: a press and its
    ** release are matched by the vessel's MMSI, not by element, and a press
    ** holds the rebuild until it is let go, so the entries do not move under
    ** it. Releasing on the entry pressed centres the chart on that vessel.
    */
    _watchListPress: function (div) {
        var a = kelvor.ais;
        function mmsiAt(ev) {
            var e = ev.target && ev.target.closest ? ev.target.closest(".ais_entry[data-mmsi]") : null;
            return e ? e.getAttribute("data-mmsi") : null;
        }
        div._pressWatch = true;
        div.addEventListener("pointerdown", function (ev) {
            a._listHeld = true;
            a._listPress = ev.button === 0 ? mmsiAt(ev) : null;
        });
        div.addEventListener("pointerup", function (ev) {
            var id = mmsiAt(ev);
            if (id !== null && id === a._listPress) a.goAis(id);
        });
        /* on the way back up, so after the list's own pointerup */
        function release() {
            a._listHeld = false;
            a._listPress = null;
        }
        document.addEventListener("pointerup", release);
        document.addEventListener("pointercancel", release);
    },

    /*
    ** The target list of the right column: the nearest 30 shown targets with
    ** their CPA texts. Fairway markers list only with a CPA.
    */
    fillAisList: function (aisuserid) {
        var a = kelvor.ais, s = kelvor.settings;
        var div = kelvor.aux.el("r_ais_list");
        var nr = a._setBoat(1);
        var cand = [];
        for (var id in a.ais_elem) {
            var e = a.ais_elem[id];
            if (e.msgid === 4 || !e.lat || !e.lon || e.X === undefined) continue;
            if (aisuserid && e.user === aisuserid) continue;
            if (!(a.classShown(e) || e.msgid === 201)) continue;
            a._brgRng(e);
            if (!e.rng || !e.brg) continue;
            cand.push(e);
        }
        cand.sort(function (p, q) { return p.rng - q.rng; });
        if (cand.length > 30) cand.length = 30;
        var d = new Date();
        var h = "<h5>" + "AIS Targets" + "<span class=\"ais_clock\" style=\"float:right\">" +
            (d.getHours() < 10 ? "0" : "") + d.getHours() + ":" + (d.getMinutes() < 10 ? "0" : "") + d.getMinutes() +
            "</span></h5>";
        for (var i = 0; i < cand.length; i++) {
            var t = cand[i];
            if (nr) {
                var c = nr.cpa(t.X, t.Y, t.sog || 0, t.cog || 0);
                t.CPA = c.CPA;
                if (t.showEncounter) t.cpa = c.CPA ? c : false;
            }
            if (t.msgid === 201) {
                if (!t.CPA) continue;
                h += "<div class=\"ais_entry ais_rte\"><b>" + kelvor.aux.esc(t.name) + "</b> TCPA: " +
                    String(t.CPA).split("&nbsp;/&nbsp;")[1] + "</div>";
                continue;
            }
            h += "<div class=\"ais_entry\" data-mmsi=\"" + kelvor.aux.esc(t.user) + "\"><b>" +
                kelvor.aux.esc(t.name) + "</b><br>SOG: " + t.SOG + " COG: " + t.COG + "<br>BRG: " + s.fmtBrg(t.brg) + " RNG: " +
                s.fmtDist(t.rng) + "<br>CPA: <span class=\"ais_cpa\">" + (t.CPA || "---") + "</span></div>";
        }
        a.aisListSorted = cand;
        if (!div) return;
        if (!div._pressWatch) a._watchListPress(div);
        if (!a._listHeld) div.innerHTML = h;
    }
};
