/*
** kelvor.track.js: the recorded track and the log.
**
** Two views of the `log` table of the trip database. The rolling track is
** fed by the status reply: each request sends `lastTrackTimeStamp` and the
** host answers with the newer track points only. The day view reads a whole
** day (or everything) by SQL, with the log bar, the log table dialog, the
** user's notes (type 12 rows, shown as markers) and deleting and sharing a
** day. The track line breaks at long pauses and long jumps and carries
** time and position labels.
*/

kelvor.track = {
    trackCoords: [],
    trackDateStart: 0,
    trackDateEnd: 0,
    trackLength: 0,
    detailLevel: 2,
    timeZone: new Date().getTimezoneOffset() * 60,
    marker12: [],
    labelfix: {},
    lastTrackTimeStamp: 4294967295,
    NO_UPDATES: 4294967295,

    _now: function () {
        return kelvor.boat && kelvor.boat.loctime ? kelvor.boat.loctime : new Date().gT();
    },

    /* Rows of a query on the trip database, or false. */
    sql: function (q) {
        var r = postSync("/UexecSql", q);
        if (r === false) return false;
        try {
            var l = kelvor.aux.parseSql(r);
            return Array.isArray(l) ? l : false;
        } catch (e) {
            return false;
        }
    },

    /* Empties the rolling track; the next status refills it from the host. */
    clearTrack: function () {
        var T = kelvor.track;
        T.trackCoords = [];
        T.lastTrackTimeStamp = T._now() - Number(kelvor.settings.k.S.i_settings_track_length);
    },

    setTrackOn: function (m) {
        var T = kelvor.track, show = kelvor.aux.show;
        kelvor.settings.k.C.i_track_on = !!m;
        show("btn_track_pause", !!m);
        show("btn_track_rec", !m);
        if (m) T.clearTrack();
        else T.lastTrackTimeStamp = T.NO_UPDATES;
    },

    /* Rolling update: drops points older than the track length, appends
    ** the rows of lon, lat, seconds (lon 999 is no position). */
    updateTrack: function (rows) {
        var T = kelvor.track, M = kelvor.marker;
        if (T.lastTrackTimeStamp === T.NO_UPDATES || !Array.isArray(rows)) return;
        var c = T.trackCoords, old = T._now() - Number(kelvor.settings.k.S.i_settings_track_length), n = 0;
        while (n < c.length && c[n + 2] < old) n += 3;
        if (n) c.splice(0, n);
        for (var i = 0; i < rows.length; i++) {
            var r = rows[i];
            if (!r || r.length < 3) continue;
            var ts = Number(r[2]);
            if (ts > T.lastTrackTimeStamp) T.lastTrackTimeStamp = ts;
            if (Number(r[0]) === 999) continue;
            c.push(M.getXpos(Number(r[0])), M.getYpos(Number(r[1])), ts);
        }
    },

    /* Start of the local day that holds ts, in seconds. */
    dayStart: function (ts) {
        var T = kelvor.track;
        return Math.floor((ts - T.timeZone) / 86400) * 86400 + T.timeZone;
    },

    /* The span of a day choice: 0 today, 1 everything, else a day start. */
    span: function (id) {
        var T = kelvor.track;
        id = Number(id);
        var today = T.dayStart(new Date().gT());
        if (id === 0) return { start: today, end: today + 86400 };
        if (id === 1) return { start: 2, end: today + 86400 };
        return { start: id, end: id + 86400 };
    },

    /* ---- the log bar --------------------------------------------------- */

    /* the bar's buttons: id, icon, label, call */
    _BAR: [
        ["btn_track_log", "icon-50-log.png", "Log", "kelvor.track.detail(kelvor.track.detailLevel)"],
        ["btn_track_note", "info-24-red.png", "Note", "kelvor.track.noteDialog(0)"],
        ["btn_track_share", "icon-50-cloud.png", "Share", "kelvor.track.share()"],
        ["btn_track_del", "icon-50-tool.png", "Delete", "kelvor.track.delTrack()"]
    ],

    _ui: function () {
        var T = kelvor.track, aux = kelvor.aux;
        if (!aux.menuBar("cp_track_menu", T._BAR)) return;
        aux.setText("cp_track_dash", "<select id=\"i_track_days\" onchange=\"kelvor.track.showTrack(this.value)\"></select>" +
            "<div><span id=\"i_track_time_date\"></span> <span id=\"i_track_length\"></span></div>" +
            "<div><span id=\"i_track_time_start\"></span> - <span id=\"i_track_time_end\"></span> " +
            "<span id=\"i_track_duration\"></span></div>");
        T.setTrackOn(kelvor.settings.k.C.i_track_on);
    },

    _p2: function (n) { return (n < 10 ? "0" : "") + n; },
    fmtDate: function (ts) {
        var T = kelvor.track;
        var d = new Date(ts * 1000);
        return d.getFullYear() + "-" + T._p2(d.getMonth() + 1) + "-" + T._p2(d.getDate());
    },

    fmtClock: function (ts) {
        var T = kelvor.track;
        var d = new Date(ts * 1000);
        return T._p2(d.getHours()) + ":" + T._p2(d.getMinutes()) + ":" + T._p2(d.getSeconds());
    },

    menu: function () {
        var T = kelvor.track, el = kelvor.aux.el;
        T._ui();
        cpApp.showMenuBar("cp_track_menu");
        cpApp.showDashBoard("cp_track_dash");
        T.lastTrackTimeStamp = T.NO_UPDATES;
        var tz = T.timeZone;
        var rows = T.sql("SELECT cast(((ts-(" + tz + "))/86400) as integer)*86400+(" + tz +
            ") FROM log GROUP BY 1 ORDER BY 1") || [];
        var h = "<option value=\"0\">" + "Today" + "</option><option value=\"1\">" + "All" + "</option>";
        for (var i = rows.length - 1; i >= 0; i--) {
            var ts = Number(rows[i][0]);
            if (ts > 1) h += "<option value=\"" + ts + "\">" + T.fmtDate(ts) + "</option>";
        }
        var sel = el("i_track_days");
        if (sel) sel.innerHTML = h;
        T.showTrack(0);
    },

    showTrack: function (id) {
        var T = kelvor.track, M = kelvor.marker;
        var sp = T.span(id);
        T.trackDateStart = sp.start;
        T.trackDateEnd = sp.end;
        var rows = T.sql("SELECT x,y,ts FROM log WHERE t=1 AND " + sp.start + " <= ts AND ts  < " + sp.end +
            " AND x < 999 ORDER BY ts") || [];
        var c = [], len = 0, x1 = Infinity, y1 = Infinity, x2 = -Infinity, y2 = -Infinity;
        for (var i = 0; i < rows.length; i++) {
            var x = M.getXpos(Number(rows[i][0])), y = M.getYpos(Number(rows[i][1]));
            if (!isFinite(x) || !isFinite(y)) continue;
            if (c.length) len += new M(c[c.length - 3], c[c.length - 2]).geoDist({ x: x, y: y });
            c.push(x, y, Number(rows[i][2]));
            x1 = Math.min(x1, x); y1 = Math.min(y1, y);
            x2 = Math.max(x2, x); y2 = Math.max(y2, y);
        }
        T.trackCoords = c;
        T.trackLength = len;
        if (c.length > 12) cpApp.map.setPosWorldMerc(x1, y1, x2, y2);
        T.dash();
        T.loadMarker12();
        cpApp.update();
    },

    dash: function () {
        var T = kelvor.track, setText = kelvor.aux.setText;
        var s = kelvor.settings, c = T.trackCoords, n = c.length;
        setText("i_track_length", s.fmtDist(T.trackLength));
        setText("i_track_time_date", T.fmtDate(T.trackDateStart));
        setText("i_track_time_start", n ? T.fmtClock(c[2]) : "---");
        setText("i_track_time_end", n ? T.fmtClock(c[n - 1]) : "---");
        setText("i_track_duration", n ? s.fmtDuration(c[n - 1] - c[2]) : "---");
    },

    /* ---- the log table and notes ---------------------------------------- */

    TYPES: { 1: "Track", 2: "System", 3: "Start", 4: "Alert", 5: "Route", 12: "Note" },
    /* The log dialog; level 0 shows all rows, 2 hides the track points and
    ** system notes, a negative level shows the one row of that id. */
    detail: function (level) {
        var T = kelvor.track, setText = kelvor.aux.setText;
        level = Number(level);
        var q;
        if (level < 0) {
            q = "SELECT ts,x,y,v,t,id FROM log WHERE id=" + (-level);
        } else {
            T.detailLevel = level;
            q = "SELECT ts,x,y,v,t,id FROM log WHERE ts >=" + T.trackDateStart + " AND ts < " + T.trackDateEnd +
                " AND t > " + level + " ORDER BY id DESC";
        }
        var rows = T.sql(q) || [], s = kelvor.settings;
        var h = "<h2>" + "Log" + "</h2><div class=\"btn_row\"><button type=\"button\" onclick=\"kelvor.track.detail(0)\">" +
            "Full" + "</button> <button type=\"button\" onclick=\"kelvor.track.detail(2)\">" + "Normal" + "</button> " +
            "<button type=\"button\" onclick=\"kelvor.track.noteDialog(0)\">" + "Note" + "</button></div><table class=\"np_table\">";
        for (var i = 0; i < rows.length; i++) {
            var r = rows[i], t = Number(r[4]), id = Number(r[5]), txt;
            if (t === 12) {
                var o = T.parseNote(r[3]);
                txt = "<b>" + kelvor.aux.esc(o.h) + "</b><br>" + kelvor.aux.esc(o.b) + " <button type=\"button\" onclick=\"kelvor.track." +
                    "noteDialog(" + id + ")\">" + "Edit" + "</button> <button type=\"button\" onclick=\"kelvor.track.delLog(" +
                    id + ")\">" + "Delete" + "</button>";
            } else {
                txt = kelvor.aux.esc(r[3]);
            }
            var pos = Number(r[1]) < 999 ? s.fmtLat(Number(r[2])) + " " + s.fmtLon(Number(r[1])) : "---";
            h += "<tr><td>" + T.fmtDate(r[0]) + " " + T.fmtClock(r[0]) + "</td><td>" + (T.TYPES[t] || t) + "</td><td>" +
                pos + "</td><td>" + txt + "</td></tr>";
        }
        h += "</table>";
        setText("np_table_list_content", h);
        cpApp.sizeDialog("np_table_list", 720);
    },

    /* A note row's text: JSON with heading h and body b; anything else is
    ** shown as its body. */
    parseNote: function (v) {
        try {
            var o = JSON.parse(v);
            if (o && typeof o === "object") return { h: o.h === undefined ? "" : o.h, b: o.b === undefined ? "" : o.b };
        } catch (e) {
            /* fall through */
        }
        return { h: "", b: v === undefined || v === null ? "" : String(v) };
    },

    /* The note editor: a heading and a text; id 0 adds a new note. */
    noteDialog: function (id) {
        var T = kelvor.track, el = kelvor.aux.el;
        var f = el("np_nob_comment"), o = { h: "", b: "" };
        if (!f) return;
        if (id) {
            var r = T.sql("SELECT v FROM log WHERE id=" + Number(id));
            if (r && r.length) o = T.parseNote(r[0][0]);
        }
        f.children[0].innerHTML = "<h2>Note</h2><input type=\"text\" id=\"i_nob_name\" style=\"width:100%\" value=\"" +
            kelvor.aux.esc(o.h) + "\"><textarea id=\"i_nob_comment\" rows=\"6\" style=\"width:100%\">" + kelvor.aux.esc(o.b) +
            "</textarea><div class=\"btn_row\"><button type=\"button\" id=\"btn_nob_save\" onclick=\"" +
            (id ? "kelvor.track.editLog(" + Number(id) + ")" : "kelvor.track.addLog()") + "\">Save</button></div>";
        cpApp.sizeDialog(f);
    },

    _noteText: function () {
        var el = kelvor.aux.el;
        var n = el("i_nob_name"), t = el("i_nob_comment");
        return JSON.stringify({ h: n ? n.value : "", b: t ? t.value : "" });
    },

    addLog: function () {
        var T = kelvor.track;
        kelvor.boat.log(12, T._noteText());
        cpApp.closeDlg();
        window.setTimeout(T.loadMarker12, 500);
    },

    editLog: function (id) {
        var T = kelvor.track;
        postSync("/UexecSql", "UPDATE log SET v=X'" + kelvor.aux.hexscape(T._noteText()) + "' WHERE id=" + Number(id));
        cpApp.closeDlg();
        T.loadMarker12();
    },

    delLog: function (id, ok) {
        var T = kelvor.track;
        if (!ok) {
            cpApp.yesno("Delete Log Entry ?", "kelvor.track.delLog(" + Number(id) + ",true)");
            return;
        }
        postSync("/UexecSql", "DELETE FROM log WHERE id=" + Number(id));
        T.loadMarker12();
        T.detail(T.detailLevel);
    },

    /* The day's notes as markers; a tap opens the entry. */
    loadMarker12: function () {
        var T = kelvor.track, M = kelvor.marker;
        var i;
        for (i = 0; i < T.marker12.length; i++) M.remove(T.marker12[i]);
        T.marker12 = [];
        var rows = T.sql("SELECT x,y,v,id FROM log WHERE t=12 AND " + T.trackDateStart + " <= ts AND ts < " +
            T.trackDateEnd + " AND x < 999") || [];
        for (i = 0; i < rows.length; i++) {
            var m = new M(M.getXpos(Number(rows[i][0])), M.getYpos(Number(rows[i][1])), "img/info-24-red.png");
            m.type = 12;
            m.s = 100000000;
            m.txt = m.name = T.parseNote(rows[i][2]).h;
            m.logid = Number(rows[i][3]);
            m.onUp = function () { T.detail(-this.logid); };
            T.marker12.push(m);
        }
    },

    delTrack: function (ok) {
        var T = kelvor.track;
        if (!ok) {
            cpApp.yesno("Delete Track ?", "kelvor.track.delTrack(true)");
            return;
        }
        postSync("/UexecSql", "DELETE FROM log WHERE " + T.trackDateStart + " <= ts AND ts < " + T.trackDateEnd);
        T.showTrack(T.trackDateStart);
    },

    share: function () {
        var T = kelvor.track, M = kelvor.marker;
        var rows = T.sql("SELECT x,y,ts,t,v FROM log WHERE " + T.trackDateStart + " <= ts AND ts  < " +
            T.trackDateEnd + " AND x < 999 ORDER BY id") || [];
        var m = [];
        for (var i = 0; i < rows.length; i++) {
            m.push({
                x: Math.round(M.getXpos(Number(rows[i][0]))), y: Math.round(M.getYpos(Number(rows[i][1]))),
                s: rows[i][2], t: rows[i][3], name: rows[i][4]
            });
        }
        M.shareObj(JSON.stringify({
            type: "t", title: "Track for: " + kelvor.settings.k.V.i_settings_boat_name, color: "#ff0000", pkt: { m: m }
        }), "Track share");
    },

    /* Notes are map points and so are hit by the marker list; the line
    ** itself takes no taps. */
    find: function () {},
    /* ---- drawing ------------------------------------------------------- */

    /* Whether the line breaks between two points: a pause of more than
    ** 84600 seconds, or a jump of more than maxPix pixels. */
    gap: function (dt, dpx, maxPix) {
        return dt > 84600 || dpx > maxPix;
    },

    /* Grid key of a screen point for the label cells of 100 pixels. */
    labelKey: function (x, y) {
        return Math.floor((x + 5000) / 100) + 100 * Math.floor((y + 5000) / 100);
    },

    /* The neighbours tested run along one grid row only: key + ix + iy. */
    labelTaken: function (key) {
        var T = kelvor.track;
        for (var ix = -1; ix <= 1; ix++) {
            for (var iy = -1; iy <= 1; iy++) if (T.labelfix[key + ix + iy]) return true;
        }
        return false;
    },

    _label: function (ctx, x, y, ts) {
        var T = kelvor.track, M = kelvor.marker;
        var s = kelvor.settings, key = T.labelKey(x, y);
        if (T.labelTaken(key)) return false;
        T.labelfix[key] = true;
        var lines = [[T.fmtClock(ts), -8], [s.fmtLat(M.getLatY(ctx._ty)), 16], [s.fmtLon(M.getLonX(ctx._tx)), 28]];
        ctx.save();
        ctx.translate(x, y);
        ctx.rotate(-(ctx.rotation || 0));
        ctx.beginPath();
        ctx.arc(0, 0, 3, 0, 2 * Math.PI);
        ctx.fillStyle = "black";
        ctx.fill();
        ctx.lineWidth = 3;
        ctx.strokeStyle = "rgba(255,255,255,0.8)";
        ctx.font = "11px sans-serif";
        ctx.textAlign = "left";
        for (var i = 0; i < lines.length; i++) {
            ctx.strokeText(lines[i][0], 6, lines[i][1]);
            ctx.fillText(lines[i][0], 6, lines[i][1]);
        }
        ctx.restore();
        return true;
    },

    render: function (ctx) {
        var T = kelvor.track;
        var c = T.trackCoords, f = ctx.scm, n = c.length;
        T.labelfix = {};
        if (n < 3) return;
        var maxPix = Number(kelvor.settings.k.S.i_settings_track_maxdist) / (ctx.mercfac || 1) * f;
        ctx.save();
        ctx.lineWidth = 2;
        ctx.lineCap = "round";
        ctx.lineJoin = "round";
        ctx.strokeStyle = "rgba(255,0,0,0.8)";
        ctx.beginPath();
        var px = 0, py = 0, pt = 0;
        for (var i = 0; i < n; i += 3) {
            var x = c[i] * f - ctx.cxzero, y = c[i + 1] * f - ctx.cyzero, t = c[i + 2];
            var dpx = Math.sqrt((x - px) * (x - px) + (y - py) * (y - py));
            if (i === 0 || T.gap(t - pt, dpx, maxPix)) ctx.moveTo(x, y);
            else ctx.lineTo(x, y);
            px = x; py = y; pt = t;
        }
        if (kelvor.boat.autoUpdate) {
            ctx.lineTo(kelvor.boat.theBoat.x * f - ctx.cxzero, kelvor.boat.theBoat.y * f - ctx.cyzero);
        }
        ctx.stroke();
        ctx.restore();
        var lx = 0, ly = 0, first = true;
        for (var j = 0; j < n; j += 3) {
            var sx = c[j] * f - ctx.cxzero, sy = c[j + 1] * f - ctx.cyzero;
            var inView = sx > ctx.x1 - 100 && sx < ctx.x2 + 100 && sy > ctx.y1 - 100 && sy < ctx.y2 + 100;
            if (!first && !(inView && Math.sqrt((sx - lx) * (sx - lx) + (sy - ly) * (sy - ly)) > 80)) continue;
            ctx._tx = c[j];
            ctx._ty = c[j + 1];
            if (T._label(ctx, sx, sy, c[j + 2]) || first) {
                lx = sx;
                ly = sy;
            }
            first = false;
        }
    }
};
