/*
** kelvor.tides.js: tide stations and the tide panel.
**
** Stations come from the open chart pack (its "tides" key/value row), the
** levels from its tides table through the SQL gateway: hourly samples
** (typ 2) with the extremes (typ 0 low, typ 1 high) at their true times,
** or extremes only. On the chart each station shows whether the next
** extreme is high or low water and when. A tap opens a panel with 60 days
** of curve around now, scrolled by pan and swipe, with daylight, sunrise,
** sunset and the moon's phase from SunCalc (lib/suncalc.js).
**
** A secondary station (stype 2) has no rows of its own: it uses those of
** station pid, moved in time by time_low / time_high minutes and in level
** by level_low / level_high (factors when level_mode is above 0, else
** offsets). Every span between two extremes is mapped linearly onto the
** corrected span, so samples inside it follow.
*/

kelvor.tideSrc = {
    BSH: "Bundesamt für Seeschifffahrt und Hydrographie (BSH)",
    RWS: "Rijkswaterstaat, Netherlands (RWS)",
    SHOM: "Service hydrographique et océanographique de la marine (SHOM)",
    NOAA: "National Oceanic and Atmospheric Administration (NOAA)"
};

kelvor.tides = {
    stationList: {},
    /* the curve rows: flat triples ts, level, typ */
    C: [],
    td: null,
    shape: null,
    shapeTop: 25,
    lmin: 0,
    lmax: 0,
    cnt: 0,
    tidetime: 0,
    hammer: false,
    _panTimer: null,
    _swipeTimer: null,
    _icons: {},

    DAYPX: 600,
    SECPX: 144,

    /* ---- pure parts ----------------------------------------------------- */

    /* The tide shape of a station on a scale of 0 to 1000, and the index of
    ** its top; without one a cosine of 50 points topping at 25. */
    parseShape: function (st) {
        var sh = null;
        if (st && st.shape) {
            try {
                sh = JSON.parse("[" + String(st.shape).replace(/^\[|\]$/g, "") + "]");
            } catch (e) {
                sh = null;
            }
        }
        if (Array.isArray(sh) && sh.length > 1) {
            var top = 0;
            for (var i = 1; i < sh.length; i++) if (sh[i] > sh[top]) top = i;
            return { shape: sh, shapeTop: top };
        }
        var d = [];
        for (var j = 0; j < 50; j++) d.push(1000 - (Math.cos(j / 25 * Math.PI) * 500 + 500));
        return { shape: d, shapeTop: 25 };
    },

    /* A level corrected for a secondary station; nulls change nothing. */
    corr: function (l, c, st) {
        if (c === null || c === undefined || c === "") return l;
        return Number(st.level_mode) > 0 ? l * Number(c) : l + Number(c);
    },

    /* The level window of the panel: secondary corrections first, then 20
    ** per cent of the range added at each end. */
    levelWindow: function (lmin, lmax, st) {
        var T = kelvor.tides;
        if (st && Number(st.stype) === 2) {
            lmin = T.corr(lmin, st.level_low, st);
            lmax = T.corr(lmax, st.level_high, st);
        }
        var mean = (lmin + lmax) / 2, r = (lmax - lmin) * 0.2;
        return { lmin: lmin - r, lmax: lmax + r, mean: mean };
    },

    /*
    ** Builds the curve from the rows C between startTime and endTime.
    ** Returns { pts, hl }: pts the curve as flat time, level pairs, hl the
    ** extremes as [time, level, typ]. Each span between consecutive
    ** extremes is mapped onto its corrected times and levels; with no
    ** samples (cnt 0) the span is filled from the shape instead.
    */
    buildCurve: function (C, st, startTime, endTime, shape, shapeTop, cnt) {
        var T = kelvor.tides, n = C.length / 3, pts = [], hl = [];
        function ts(i) { return C[i * 3]; }
        function lv(i) { return C[i * 3 + 1]; }
        function ty(i) { return C[i * 3 + 2]; }
        if (n < 2) return { pts: pts, hl: hl };
        var ia = 0;
        while (ia < n && !(ts(ia) > startTime - 86400)) ia++;
        ia = Math.max(0, ia - 1);
        while (ia > 0 && ty(ia) === 2) ia--;
        while (ia < n && ty(ia) === 2) ia++;
        var ie = 0;
        while (ie < n && !(ts(ie) > endTime)) ie++;
        if (ia >= n) return { pts: pts, hl: hl };
        var lh = ty(ia) === 0;
        var tl = (Number(st.time_low) || 0) * 60, th = (Number(st.time_high) || 0) * 60;
        var last = null;
        while (ia < ie) {
            var je = ia + 1;
            while (je < n && ty(je) === 2) je++;
            if (je >= n) break;
            var ta, te, la, le;
            if (lh) {
                ta = ts(ia) + tl;
                te = ts(je) + th;
                la = T.corr(lv(ia), st.level_low, st);
                le = T.corr(lv(je), st.level_high, st);
            } else {
                ta = ts(ia) + th;
                te = ts(je) + tl;
                la = T.corr(lv(ia), st.level_high, st);
                le = T.corr(lv(je), st.level_low, st);
            }
            var dt = ts(je) - ts(ia), dl = lv(je) - lv(ia);
            for (var i = ia; i < je; i++) {
                var t1 = dt ? ta + (ts(i) - ts(ia)) / dt * (te - ta) : ta;
                var l1 = dl ? la + (lv(i) - lv(ia)) / dl * (le - la) : la;
                if (ty(i) !== 2) hl.push([t1, l1, ty(i)]);
                if (cnt > 0) pts.push(t1, l1);
            }
            if (!(cnt > 0)) {
                var j, step;
                if (lh) {
                    step = (te - ta) / shapeTop;
                    for (j = 0; j < shapeTop; j++) pts.push(ta + j * step, shape[j] * (le - la) * 0.001 + la);
                } else {
                    step = (te - ta) / (shape.length - shapeTop);
                    for (j = shapeTop; j < shape.length; j++) {
                        pts.push(ta + (j - shapeTop) * step, le - shape[j] * (le - la) * 0.001);
                    }
                }
            }
            last = [te, le, ty(je)];
            lh = !lh;
            ia = je;
        }
        /* the curve ends on the last span's extreme */
        if (last) {
            pts.push(last[0], last[1]);
            hl.push(last);
        }
        return { pts: pts, hl: hl };
    },

    /*
    ** Cardinal spline through flat x, y pairs, tension t, seg steps per
    ** segment. The end points are doubled so the curve runs through them.
    */
    spline: function (pts, t, seg) {
        var p = pts.slice(), res = [];
        if (p.length < 4) return p;
        p.unshift(pts[0], pts[1]);
        p.push(pts[pts.length - 2], pts[pts.length - 1]);
        for (var i = 2; i < p.length - 4; i += 2) {
            var t1x = (p[i + 2] - p[i - 2]) * t, t2x = (p[i + 4] - p[i]) * t;
            var t1y = (p[i + 3] - p[i - 1]) * t, t2y = (p[i + 5] - p[i + 1]) * t;
            for (var k = 0; k <= seg; k++) {
                if (k === seg && i < p.length - 6) break;
                var s = k / seg, s2 = s * s, s3 = s2 * s;
                var c1 = 2 * s3 - 3 * s2 + 1, c2 = -2 * s3 + 3 * s2, c3 = s3 - 2 * s2 + s, c4 = s3 - s2;
                res.push(c1 * p[i] + c2 * p[i + 2] + c3 * t1x + c4 * t2x,
                    c1 * p[i + 1] + c2 * p[i + 3] + c3 * t1y + c4 * t2y);
            }
        }
        return res;
    },

    /* Level at time t by straight interpolation of the curve points, or
    ** null outside them. */
    levelAt: function (pts, t) {
        for (var i = 0; i + 3 < pts.length; i += 2) {
            if (pts[i] <= t && pts[i + 2] >= t) {
                var d = pts[i + 2] - pts[i];
                return d ? pts[i + 1] + (t - pts[i]) / d * (pts[i + 3] - pts[i + 1]) : pts[i + 1];
            }
        }
        return null;
    },

    /* Hours and minutes of a time in the browser's local form, with AM or
    ** PM where the locale writes one. */
    hm: function (ts) {
        var t = new Date(ts * 1000).toLocaleTimeString();
        var m = /(\d{1,2})[:.](\d{2})/.exec(t);
        var ap = /AM|PM/i.exec(t);
        return (m ? m[1] + ":" + m[2] : t) + (ap ? " " + ap[0].toUpperCase() : "");
    },

    /* ---- data ----------------------------------------------------------- */

    _sql: function (q) {
        var r = postSync("/MexecSql", q);
        if (r === false) return [];
        try {
            var rows = JSON.parse(r);
            return Array.isArray(rows) ? rows : [];
        } catch (e) {
            return [];
        }
    },

    /* Reads 60 days of rows around now for a station; throws "NoTideData"
    ** when there are none. */
    load: function (st) {
        var T = kelvor.tides;
        var lid = Number(st.pid || st.id);
        var db1 = new Date().gT() - 30 * 86400, db2 = db1 + 60 * 86400;
        var base = T.stationList[lid] || st;
        var sh = T.parseShape(base);
        T.shape = sh.shape;
        T.shapeTop = sh.shapeTop;
        var rows = T._sql("SELECT ts,level,typ FROM tides WHERE id=" + lid + " AND ts > " + db1 + " AND  ts < " + db2 +
            " ORDER BY id,ts ASC");
        if (!rows.length) throw "NoTideData";
        var C = [], lmin = Infinity, lmax = -Infinity, cnt = 0;
        for (var i = 0; i < rows.length; i++) {
            var l = Number(rows[i][1]), typ = Number(rows[i][2]);
            C.push(Number(rows[i][0]), l, typ);
            if (l < lmin) lmin = l;
            if (l > lmax) lmax = l;
            if (typ === 2) cnt++;
        }
        T.C = C;
        T.lmin = lmin;
        T.lmax = lmax;
        T.cnt = cnt;
        T.td = st;
    },

    /* ---- the panel ------------------------------------------------------ */

    /* As a station marker's onUp: this is the marker. */
    showTide: function () {
        var T = kelvor.tides;
        T.tidetime = new Date().gT();
        T.showTideDiv(kelvor.aux.el("tide_canvas"), T.tidetime, this.a);
    },

    showTideDiv: function (canvas, time, st) {
        var T = kelvor.tides, div = kelvor.aux.el("np_tide_div");
        if (!canvas || !div) return;
        kelvor.aux.removeClass(div, "none");
        canvas.width = Math.max(300, div.clientWidth || 600);
        canvas.height = 250;
        try {
            T.drawTide(canvas, time, st);
        } catch (e) {
            T.hideTide();
            if (e === "NoTideData") cpApp.sizeDialog(kelvor.aux.el("np_tide_nodata"));
            else console.log("tides: " + (e && e.stack ? e.stack : e));
            return;
        }
        kelvor.aux.el("tide_info_txt").textContent = st.name || "";
        kelvor.aux.el("tide_info_bottom").textContent = "Tide data: " + (kelvor.tideSrc[st.src] || st.src || "");
        if (!T.hammer) T._gestures(canvas);
    },

    /* The button of the no-data dialog: fetch the chart kit anew. */
    loadKit: function () {
        cpApp.closeDlg();
        if (kelvor.chartkit.updateChartKit) kelvor.chartkit.updateChartKit(1);
    },

    hideTide: function () {
        var div = kelvor.aux.el("np_tide_div");
        if (div) kelvor.aux.addClass(div, "none");
    },

    _gestures: function (canvas) {
        var T = kelvor.tides;
        T.hammer = true;
        if (typeof Hammer === "undefined") return;
        var h = new Hammer(canvas);
        h.get("pan").set({ direction: Hammer.DIRECTION_ALL, threshold: 10 });
        h.get("swipe").set({ velocity: 1, threshold: 50 });
        h.on("panmove", function (ev) {
            if (T._panTimer) return;
            var at = T.tidetime - T.SECPX * ev.deltaX;
            T._panTimer = window.setTimeout(function () {
                T._panTimer = null;
                try { T.drawTide(canvas, at); } catch (e) { /* the rows are loaded; nothing to report */ }
            }, 1);
        });
        h.on("panend", function (ev) {
            T.tidetime = T.tidetime - T.SECPX * ev.deltaX;
        });
        h.on("swipe", function (ev) {
            if (T._swipeTimer) return;
            var v = -ev.velocityX * 50, n = 0;
            T._swipeTimer = window.setInterval(function () {
                T.tidetime += T.SECPX * v;
                v *= 0.9;
                try { T.drawTide(canvas, T.tidetime); } catch (e) { /* as above */ }
                if (++n >= 25) {
                    window.clearInterval(T._swipeTimer);
                    T._swipeTimer = null;
                }
            }, 50);
        });
    },

    /* The moon phase image; one that arrives after the panel was drawn
    ** draws the open panel again, so the first opening shows it too. */
    _moon: function (i) {
        var T = kelvor.tides, key = "img/m32/m" + (i < 10 ? "0" : "") + i + ".png";
        if (!T._icons[key]) {
            var img = T._icons[key] = new Image();
            img.onload = function () {
                var div = kelvor.aux.el("np_tide_div"), c = kelvor.aux.el("tide_canvas");
                if (!div || !c || kelvor.aux.hasClass(div, "none") || !T.td) return;
                try { T.drawTide(c, T.tidetime); } catch (e) { /* the rows are loaded; nothing to report */ }
            };
            img.src = key;
        }
        return T._icons[key];
    },

    /* Draws the panel for a time; without a station the last one again. */
    drawTide: function (canvas, time, st) {
        var T = kelvor.tides;
        if (st) T.load(st);
        if (!T.td) return;
        var f = T._frame(canvas, time, T.td);
        T._drawDays(f);
        T._drawLevelAxes(f);
        var cv = T._drawCurve(f);
        T._drawExtremes(f, cv);
        T._drawNow(f, cv.pts, time);
        T.lastCurve = cv;
    },

    /* The panel's geometry for a station and a time at its centre: the
    ** time span, the level window and the two scales; clears the panel. */
    _frame: function (canvas, time, st) {
        var T = kelvor.tides;
        var ctx = canvas.getContext("2d"), w = canvas.width, h = canvas.height;
        var startTime = time - w / 2 * T.SECPX, endTime = time + w / 2 * T.SECPX + 86400;
        var win = T.levelWindow(T.lmin, T.lmax, st);
        var scale = (h - 40) / ((win.lmax - win.lmin) || 1);
        ctx.setTransform(1, 0, 0, 1, 0, 0);
        ctx.fillStyle = "#ddd";
        ctx.fillRect(0, 0, w, h);
        ctx.font = "12px sans-serif";
        ctx.textAlign = "center";
        return {
            ctx: ctx, w: w, h: h, st: st, win: win, startTime: startTime, endTime: endTime,
            lat: Number(st.lat) || 0, lon: Number(st.lon) || 0,
            l2y: function (l) { return h - ((l - win.lmin) * scale + 20); },
            t2x: function (t) { return (t - startTime) / T.SECPX; }
        };
    },

    /* Up to four days: daylight, the date with sunrise and sunset, the
    ** moon's phase and the two-hour grid. */
    _drawDays: function (f) {
        var T = kelvor.tides, ctx = f.ctx, h = f.h, t2x = f.t2x, lat = f.lat, lon = f.lon, endTime = f.endTime;
        var day = new Date(f.startTime * 1000);
        day.setHours(0, 0, 0, 0);
        for (var d = 0; d < 4 && day.getTime() / 1000 < endTime; d++) {
            var noon = new Date(day.getTime() + 12 * 3600000), x0 = t2x(day.getTime() / 1000);
            var sun = typeof SunCalc !== "undefined" ? SunCalc.getTimes(noon, lat, lon) : null;
            if (sun && !isNaN(sun.sunrise) && !isNaN(sun.sunset)) {
                ctx.fillStyle = "#ffd";
                var xr = t2x(sun.sunrise.getTime() / 1000), xs = t2x(sun.sunset.getTime() / 1000);
                ctx.fillRect(xr, 20, xs - xr, h - 20);
            }
            var next = new Date(day.getTime());
            next.setDate(next.getDate() + 1);
            var xm = t2x(next.getTime() / 1000);
            ctx.strokeStyle = "#000";
            ctx.lineWidth = 1;
            ctx.beginPath();
            ctx.moveTo(xm, 0);
            ctx.lineTo(xm, 20);
            ctx.stroke();
            ctx.fillStyle = "#000";
            ctx.fillText(day.toLocaleDateString(), xm - 300, 12);
            if (sun && !isNaN(sun.sunrise)) {
                ctx.fillText("\u2191" + T.hm(sun.sunrise.getTime() / 1000) + "  \u2193" + T.hm(sun.sunset.getTime() / 1000), xm - 300, 15 + 16);
            }
            if (typeof SunCalc !== "undefined") {
                var ph = SunCalc.getMoonIllumination(noon).phase, mi = Math.floor(ph * 28) % 28;
                ctx.fillStyle = "#fff";
                ctx.beginPath();
                ctx.arc(xm - 19.5, 41, 14, 0, 2 * Math.PI);
                ctx.fill();
                var img = T._moon(mi);
                if (img.complete && img.naturalWidth) ctx.drawImage(img, xm - 35, 25, 32, 32);
            }
            ctx.strokeStyle = "#bbb";
            ctx.fillStyle = "#555";
            for (var hr = 2; hr < 24; hr += 2) {
                var xh = x0 + hr * 3600 / T.SECPX;
                ctx.beginPath();
                ctx.moveTo(xh, 20);
                ctx.lineTo(xh, h - 12);
                ctx.stroke();
                ctx.fillText(String(hr), xh, h - 2);
            }
            day = next;
        }
    },

    /* The date line, the floor of the window, and the top, mean and datum
    ** levels with their labels. */
    _drawLevelAxes: function (f) {
        var s = kelvor.settings, ctx = f.ctx, w = f.w, l2y = f.l2y, win = f.win, st = f.st;
        ctx.strokeStyle = "#000";
        ctx.beginPath();
        ctx.moveTo(0, 20);
        ctx.lineTo(w, 20);
        ctx.moveTo(0, l2y(win.lmin));
        ctx.lineTo(w, l2y(win.lmin));
        ctx.stroke();
        ctx.strokeStyle = ctx.fillStyle = "#3a3";
        ctx.textAlign = "left";
        ctx.fillText(s.fmtDeep(win.lmax / 100), 4, 34);
        ctx.beginPath();
        ctx.moveTo(0, l2y(win.mean));
        ctx.lineTo(w, l2y(win.mean));
        ctx.moveTo(0, l2y(0));
        ctx.lineTo(w, l2y(0));
        ctx.stroke();
        ctx.fillText(s.fmtDeep(win.mean / 100), 4, l2y(win.mean) - 3);
        ctx.fillText(String(st.datum || ""), 4, l2y(0) - 3);
    },

    /* The level curve over the panel's span, smoothed when the station
    ** gives few points. Returns the curve of buildCurve. */
    _drawCurve: function (f) {
        var T = kelvor.tides, ctx = f.ctx, l2y = f.l2y, t2x = f.t2x;
        var cv = T.buildCurve(T.C, f.st, f.startTime, f.endTime, T.shape, T.shapeTop, T.cnt);
        var pts = cv.pts, px = [];
        for (var i = 0; i + 1 < pts.length; i += 2) px.push(t2x(pts[i]), l2y(pts[i + 1]));
        if (T.cnt > 0) {
            var steps = Math.floor(2000 / (px.length || 1)) || 16;
            px = T.spline(px, 0.5, steps);
        }
        ctx.strokeStyle = "#a33";
        ctx.lineWidth = 2;
        ctx.beginPath();
        for (var j = 0; j + 1 < px.length; j += 2) {
            if (j === 0) ctx.moveTo(px[j], px[j + 1]);
            else ctx.lineTo(px[j], px[j + 1]);
        }
        ctx.stroke();
        return cv;
    },

    /* High and low waters near the panel: a tick, the level and the time,
    ** the level below the tick in the upper half and above it in the lower. */
    _drawExtremes: function (f, cv) {
        var T = kelvor.tides, s = kelvor.settings, ctx = f.ctx, w = f.w, h = f.h, l2y = f.l2y, t2x = f.t2x;
        ctx.textAlign = "center";
        ctx.lineWidth = 3;
        for (var e = 0; e < cv.hl.length; e++) {
            var ex = t2x(cv.hl[e][0]), ey = l2y(cv.hl[e][1]);
            if (ex < -50 || ex > w + 50) continue;
            var up = ey < h / 2, lt = s.fmtDeep(cv.hl[e][1] / 100), tt = T.hm(cv.hl[e][0]);
            ctx.strokeStyle = "#a33";
            ctx.lineWidth = 1;
            ctx.beginPath();
            ctx.moveTo(ex, ey - 4);
            ctx.lineTo(ex, ey + 4);
            ctx.stroke();
            ctx.lineWidth = 3;
            ctx.strokeStyle = "#ffd";
            ctx.fillStyle = "#000";
            var yl = up ? ey + 16 : ey - 8, yt = up ? ey - 8 : ey + 16;
            ctx.strokeText(lt, ex, yl);
            ctx.fillText(lt, ex, yl);
            ctx.strokeText(tt, ex, yt);
            ctx.fillText(tt, ex, yt);
        }
    },

    /* The centre line with the level and the clock time of `time`. */
    _drawNow: function (f, pts, time) {
        var T = kelvor.tides, s = kelvor.settings, ctx = f.ctx, w = f.w, h = f.h;
        var cx = w / 2, lc = T.levelAt(pts, time);
        ctx.strokeStyle = "#3a3";
        ctx.lineWidth = 1;
        ctx.beginPath();
        ctx.moveTo(cx, 20);
        ctx.lineTo(cx, h);
        ctx.stroke();
        ctx.fillStyle = "#3a3";
        ctx.fillRect(cx - 80, 20, 160, 30);
        ctx.fillStyle = "#fff";
        ctx.font = "16px Sans-Serif";
        ctx.textAlign = "left";
        ctx.fillText(lc === null ? "---" : s.fmtDeep(lc / 100), cx - 76, 41);
        ctx.textAlign = "right";
        ctx.fillText(T.hm(time), cx + 76, 41);
    },

    /* ---- the chart symbol ---------------------------------------------- */

    _img: function (src) {
        var T = kelvor.tides;
        if (!T._icons[src]) {
            T._icons[src] = new Image();
            T._icons[src].src = src;
        }
        return T._icons[src];
    },

    /* Icon of a station, cached until its next extreme has passed. */
    getIcon: function (st, mapScale) {
        var T = kelvor.tides, now = new Date().gT();
        if (st.i && now < st.ts) return st.i;
        if (mapScale > 100000) return "/app/img/tiden_30_none.png";
        var lid = Number(st.pid || st.id);
        var tsl = now - (Number(st.time_low) || 0) * 60, tsh = now - (Number(st.time_high) || 0) * 60;
        var r = T._sql("SELECT ts,typ FROM tides WHERE id=" + lid + " AND ((ts > " + tsl + " AND typ=0) OR (ts > " + tsh +
            " AND typ=1)) ORDER BY id,ts ASC LIMIT 1");
        if (!r.length) {
            st.i = "/app/img/tiden_30_none.png";
            st.ts = now + 3600;
            return st.i;
        }
        var hi = Number(r[0][1]) === 1;
        st.hl = hi ? 1 : 0;
        st.i = hi ? "/app/img/tiden_30_up.png" : "/app/img/tiden_30_down.png";
        st.ts = Number(r[0][0]) + (Number(hi ? st.time_high : st.time_low) || 0) * 60;
        st.next = T.hm(st.ts);
        return st.i;
    },

    /* Draws a station marker; called with the marker (chart info list) or
    ** as the marker's own drawing with pixel coordinates. */
    renderMarker: function (ctx, a, b) {
        var T = kelvor.tides, m = a && typeof a === "object" ? a : this;
        var x, y;
        if (typeof a === "number") {
            x = a;
            y = b;
        } else {
            if (m.s && !(ctx.mapScale < m.s)) return;
            x = Math.round(m.x * ctx.scm - ctx.cxzero);
            y = Math.round(m.y * ctx.scm - ctx.cyzero);
            if (x < ctx.x1 - 50 || x > ctx.x2 + 50 || y < ctx.y1 - 50 || y > ctx.y2 + 50) return;
        }
        var st = m.a;
        if (!st) return;
        var img = T._img(T.getIcon(st, ctx.mapScale)), hh = 30;
        if (img.complete && img.naturalWidth) {
            hh = img.naturalHeight;
            ctx.drawImage(img, x - img.naturalWidth / 2, y - hh / 2);
        }
        ctx.save();
        kelvor.aux.labelStyle(ctx);
        var below = y + hh / 2 + 10, above = y + hh / 2 - 35;
        var tName = st.name || "", tNext = st.next || "";
        var yn = st.hl === 1 ? below : above, yt = st.hl === 1 ? above : below;
        ctx.strokeText(tName, x, yn);
        ctx.fillText(tName, x, yn);
        if (tNext) {
            ctx.strokeText(tNext, x, yt);
            ctx.fillText(tNext, x, yt);
        }
        ctx.restore();
    }
};
