/*
** kelvor.wind.js: wind and current forecasts over the chart.
**
** Forecast grids come from the cloud endpoint as lines of SQL, which the
** host runs into the table forcastgrids of the trip database; from there
** each forecast step is read as a grid description and a small PNG whose
** red and green channels carry the u and v components. The module draws a
** colour field of the speed and a raster of wind barbs (mode 1) or current
** arrows (mode 2), with a legend, a time selector and an animation.
*/

kelvor.wind = {
    mode: 1,
    grp: 1,
    now: 0,
    src: "",
    grid: null,
    vtlist: [],
    legend: null,
    max: 25.7222,
    colorBG: null,
    sqldata: null,
    list: null,
    _listLoaded: false,
    _timer: null,
    _vt: 0,

    legend_W: [[180, 180, 180], [120, 200, 255], [60, 140, 255], [0, 200, 200], [0, 220, 100], [160, 230, 0],
        [255, 230, 0], [255, 160, 0], [255, 80, 0], [230, 0, 60], [254, 0, 150]],
    legend_S: [[0, 255, 255], [0, 0, 255], [255, 255, 0], [255, 0, 0], [255, 0, 255]],

    /* Colour of speed on legend, as [r, g, b] and n = speed / max (not
    ** clamped, so callers see how far above max a value lies). */
    rgbGradient: function (legend, speed, max) {
        var n = speed / max, L = legend.length;
        var s = n * (L - 1);
        var p = Math.min(L - 2, Math.floor(s));
        if (p < 0) p = 0;
        var f = Math.min(s - p, 1);
        var a = legend[p], b = legend[p + 1];
        return {
            c: [a[0] * (1 - f) + b[0] * f, a[1] * (1 - f) + b[1] * f, a[2] * (1 - f) + b[2] * f],
            n: n
        };
    },

    /* u and v per cell from RGBA pixel bytes; red 0 or 255 marks a gap (999
    ** in both) whatever the green channel holds. */
    decodePixels: function (g, data) {
        var fu = (g.imax - g.imin) / (g.umax - g.umin), fv = (g.imax - g.imin) / (g.vmax - g.vmin);
        var n = g.dx * g.dy, ud = new Array(n), vd = new Array(n);
        for (var i = 0; i < n; i++) {
            var R = data[4 * i], G = data[4 * i + 1];
            if (R === 0 || R === 255) {
                ud[i] = 999;
                vd[i] = 999;
            } else {
                ud[i] = (R + g.umin * fu - g.imin) / fu;
                vd[i] = (G + g.vmin * fv - g.imin) / fv;
            }
        }
        g.ud = ud;
        g.vd = vd;
        return g;
    },

    /* u, v at a position by bilinear interpolation of the four corners of
    ** its cell, or false outside the grid or next to a gap. Row 0 lies at
    ** y1; the last row and column are not interpolated. */
    getWind: function (lat, lon, grid) {
        var g = grid || kelvor.wind.grid;
        if (!g || !g.ud) return false;
        if (lon < g.x1 || lat < g.y1 || lon >= g.x2 - g.gx || lat >= g.y2 - g.gy) return false;
        var fx = (lon - g.x1) / g.gx, fy = (lat - g.y1) / g.gy;
        var ix = Math.floor(fx), iy = Math.floor(fy);
        if (ix + 1 >= g.dx || iy + 1 >= g.dy) return false;
        var i00 = ix + iy * g.dx, i10 = i00 + 1, i01 = i00 + g.dx, i11 = i01 + 1;
        var u = g.ud, v = g.vd;
        if (u[i00] === 999 || u[i10] === 999 || u[i01] === 999 || u[i11] === 999) return false;
        var ax = fx - ix, ay = fy - iy;
        var lerp = function (a) {
            return (a[i00] * (1 - ax) + a[i10] * ax) * (1 - ay) + (a[i01] * (1 - ax) + a[i11] * ax) * ay;
        };
        return { u: lerp(u), v: lerp(v) };
    },

    /* ---- grid list ------------------------------------------------------ */

    updateWindStreamList: function () {
        var W = kelvor.wind;
        if (!W._listLoaded) {
            W._listLoaded = true;
            try {
                W.list = JSON.parse(getSync("/getValue/windstreamlist"));
            } catch (e) {
                W.list = null;
            }
            if (!W.list || typeof W.list !== "object") W.list = { lastloaded: 0, data: {} };
        }
        if (Number(W.list.lastloaded) < W.now) {
            try {
                var r = getSync(AJAXSERVER + "?getGridList=1");
                if (r === false) throw new Error("no reply");
                var d = JSON.parse(r);
                if (!d || typeof d !== "object") throw new Error("no list");
                W.list = { lastloaded: W.now, data: d };
                postSync("/setValue/windstreamlist", JSON.stringify(W.list));
            } catch (e) {
                console.log("windstreamlist: " + e);
            }
        }
        if (!W.list.data) W.list.data = {};
    },

    /* Among the grids of the mode that hold the map centre, the key of the
    ** one with the shortest diagonal in degrees; throws when none does. */
    findDefault: function (mode, lat, lon) {
        var data = kelvor.wind.list.data, best = null, bd = 99900;
        for (var key in data) {
            var e = data[key];
            if ((Number(e.grp) === 1 ? 1 : 2) !== mode) continue;
            if (!(lon >= e.x1 && lon <= e.x2 && lat >= e.y1 && lat <= e.y2)) continue;
            var d = Math.sqrt((e.x2 - e.x1) * (e.x2 - e.x1) + (e.y2 - e.y1) * (e.y2 - e.y1));
            if (d < bd) {
                bd = d;
                best = key;
            }
        }
        if (best === null) throw new Error("no grid at the map centre");
        return best;
    },

    /* ---- on, off, menu -------------------------------------------------- */

    windFinderOn: function (mode) {
        var W = kelvor.wind;
        try {
            cpApp.map.wftoken = true;
            W.loadWind(mode);
            /* the wind bar stands where the dashboards do: none stays open */
            if (cpApp.showMenuBar) cpApp.showMenuBar("*");
            if (cpApp.showDashBoard) cpApp.showDashBoard("*");
            /* and the map's scale goes below it, as below a dashboard */
            cpApp.map.scaleposY = 60;
            cpApp.update();
        } catch (e) {
            console.log("wind: " + e);
            cpApp.map.wftoken = false;
            cpApp.sizeDialog("np_wind_nodata");
        }
    },

    windFinderOff: function () {
        kelvor.wind.play(0);
        if (cpApp && cpApp.map) {
            cpApp.map.wftoken = false;
            cpApp.map.scaleposY = 0;
        }
        var d = kelvor.aux.el("cp_windfinder_dash");
        if (d) kelvor.aux.addClass(d, "none");
        if (cpApp && cpApp.update) cpApp.update();
    },

    /* Dashboards call this when they open. */
    off: function () { kelvor.wind.windFinderOff(); },

    windFinderMenu: function (type) {
        var W = kelvor.wind, data = W.list ? W.list.data : {}, S = kelvor.settings.k.S;
        var opts = "<option value=\"auto\">Automatic</option>";
        for (var key in data) {
            opts += "<option value=\"" + kelvor.aux.esc(key) + "\">" + kelvor.aux.esc(data[key].src) + "</option>";
        }
        var ids = ["i_chart_wind_source", "i_chart_stream_source"];
        for (var i = 0; i < ids.length; i++) {
            var sel = kelvor.aux.el(ids[i]);
            if (sel) {
                sel.innerHTML = opts;
                sel.value = S[ids[i]] || "auto";
            }
        }
        var id = type === 2 ? "np_windFinderMenu2" : "np_windFinderMenu1";
        var box = kelvor.aux.el(id).children[0];
        box.innerHTML = "<h2>" + (type === 2 ? "Current" : "Wind") + "</h2><select id=\"i_wf_source\">" + opts +
            "</select><div class=\"btn_row\"><button type=\"button\" id=\"btn_wf_done\" " +
            "onclick=\"kelvor.wind.menuDone(" + (type === 2 ? 2 : 1) + ")\">Done</button></div>";
        kelvor.aux.el("i_wf_source").value = S[ids[type === 2 ? 1 : 0]] || "auto";
        cpApp.sizeDialog(id);
    },

    menuDone: function (type) {
        var v = kelvor.aux.el("i_wf_source").value;
        var id = type === 2 ? "i_chart_stream_source" : "i_chart_wind_source";
        kelvor.settings.k.S[id] = v;
        var sel = kelvor.aux.el(id);
        if (sel) sel.value = v;
        kelvor.settings.done();
        kelvor.wind.windFinderOn(type);
    },

    /* ---- loading --------------------------------------------------------- */

    loadWind: function (mode) {
        var W = kelvor.wind, S = kelvor.settings.k.S;
        W.mode = mode === 2 ? 2 : 1;
        W.now = new Date().gT();
        W.updateWindStreamList();
        W.play(0);
        var val = S[W.mode === 2 ? "i_chart_stream_source" : "i_chart_wind_source"] || "auto";
        if (val === "auto") {
            var m = cpApp.map, c = m.getLatLon(m.cy, m.cx);
            val = W.findDefault(W.mode, c.lat, c.lon);
        }
        if (W.list.data[val]) W.setData(val, false);
        else W.windFinderMenu(W.mode);
    },

    _sqlRows: function (q) {
        try {
            var r = JSON.parse(postSync("/UexecSql", q));
            return Array.isArray(r) ? r : [];
        } catch (e) {
            return [];
        }
    },

    setData: function (src, isajax) {
        var W = kelvor.wind, C = kelvor.settings.k.C, e = W.list.data[src];
        W.src = src;
        kelvor.aux.el("np_wind_load_data").children[0].textContent = "Loading";
        cpApp.sizeDialog("np_wind_load_data");
        var s = addslashes(e.src);
        postSync("/UexecSql", "DELETE FROM forcastgrids WHERE vt_created < " + Number(e.created) + " AND src='" + s + "'");
        var rows = W._sqlRows("SELECT vt_created FROM forcastgrids WHERE src='" + s + "' ORDER BY vt LIMIT 1");
        var auto = W.mode === 2 ? C.i_chart_stream_autoupdate : C.i_chart_wind_autoupdate;
        var stored = rows.length ? Number(rows[0][0]) : -1;
        if (!isajax && stored !== Number(e.created) && auto) {
            cpApp.sizeDialog("np_wind_load_server");
            W.loadasync(null, 0);
            return;
        }
        W.grp = Number(e.grp) === 1 ? 1 : 2;
        W.max = W.grp === 1 ? 25.7222 : 2.57222;
        /* both kinds share the current legend */
        W.legend = W.legend_S;
        cpApp.closeDlg();
        W.vtlist = W.getVTlist();
        W.windLegend();
        W.windFinderStep(0);
        W.setFC(W.now);
    },

    _progressBox: function (text) {
        var box = kelvor.aux.el("wind_load_server_progress");
        if (!box) {
            var d = kelvor.aux.el("np_wind_load_server").children[0];
            d.innerHTML = "<div>Loading</div><div id=\"wind_load_server_progress\"></div>";
            box = kelvor.aux.el("wind_load_server_progress");
        }
        box.textContent = text;
    },

    /* The load chain: fetch the grid's SQL text, then run it line by line
    ** through the host, each step on a 1 ms timer. */
    loadasync: function (data, step) {
        var W = kelvor.wind, src = W.list.data[W.src].src;
        window.setTimeout(function () {
            if (step === 0) {
                getAsync(AJAXSERVER + "?getGridData=" + encodeURIComponent(src), function (r) {
                    if (r === false) return W._loadFail();
                    W.loadasync(r, 1);
                }, null, function (ev) {
                    W._progressBox(ev.lengthComputable && ev.total ? (ev.loaded * 100 / ev.total).toFixed(1) + " % loaded"
                        : ev.loaded + " bytes loaded");
                });
            } else if (step === 1) {
                W.sqldata = String(data).split("\n");
                W._pos = 0;
                W._postNext();
            }
        }, 1);
    },

    _postNext: function () {
        var W = kelvor.wind;
        while (W._pos < W.sqldata.length && !W.sqldata[W._pos].trim()) W._pos++;
        if (W._pos >= W.sqldata.length) {
            cpApp.closeDlg();
            W.setData(W.src, true);
            return;
        }
        var q = W.sqldata[W._pos++];
        postAsync("/execSql3", function (r) {
            if (r === false) return W._loadFail();
            W._progressBox((W._pos * 100 / W.sqldata.length).toFixed(1) + " % processed");
            window.setTimeout(W._postNext, 1);
        }, q);
    },

    _loadFail: function () {
        /* the whole wind view goes, bar and scale place included */
        kelvor.wind.windFinderOff();
        cpApp.sizeDialog("np_wind_nodata");
    },

    getVTlist: function () {
        var rows = kelvor.wind._sqlRows("SELECT vt FROM forcastgrids WHERE src='" +
            addslashes(kelvor.wind.list.data[kelvor.wind.src].src) + "' ORDER BY vt");
        var l = [];
        for (var i = 0; i < rows.length; i++) l.push(Number(rows[i][0]));
        return l;
    },

    /* Loads the first forecast at or after t and decodes its pixels. */
    setFC: function (t) {
        var W = kelvor.wind;
        try {
            var rows = JSON.parse(postSync("/UexecSql", "SELECT json,png,vt FROM forcastgrids WHERE src='" +
                addslashes(W.list.data[W.src].src) + "'  AND vt >= " + Number(t) + " ORDER BY vt LIMIT 1"));
            if (!rows || !rows.length) throw new Error("no forecast at or after " + t);
            var g = JSON.parse(rows[0][0]), vt = Number(rows[0][2]);
            W._vt = vt;
            var sel = kelvor.aux.el("np_html_wind_time");
            if (sel) sel.value = String(vt);
            var img = new Image();
            img.onload = function () {
                var c = document.createElement("canvas");
                c.width = g.dx;
                c.height = g.dy;
                var x = c.getContext("2d");
                x.drawImage(img, 0, 0);
                W.grid = W.decodePixels(g, x.getImageData(0, 0, g.dx, g.dy).data);
                W.createColorBG();
                cpApp.update();
            };
            img.src = rows[0][1];
        } catch (e) {
            console.log("setFC: " + e);
        }
    },

    /* The colour field: one pixel per cell, rows Mercator-spaced from y2
    ** down to y1 so that the image stretches straight onto the chart. */
    createColorBG: function () {
        var W = kelvor.wind, g = W.grid;
        var c = document.createElement("canvas");
        c.width = g.dx;
        c.height = g.dy;
        var x = c.getContext("2d"), im = x.createImageData(g.dx, g.dy);
        var G = kelvor.geo, m1 = G.lat2y(g.y1), m2 = G.lat2y(g.y2);
        for (var row = 0; row < g.dy; row++) {
            var lat = G.y2lat(m2 + (m1 - m2) * (row + 0.5) / g.dy);
            for (var col = 0; col < g.dx; col++) {
                var lon = g.x1 + (g.x2 - g.x1) * (col + 0.5) / g.dx;
                var w = W.getWind(lat, lon), o = 4 * (row * g.dx + col);
                if (!w) continue;
                var gr = W.rgbGradient(W.legend, Math.sqrt(w.u * w.u + w.v * w.v), W.max);
                im.data[o] = gr.c[0];
                im.data[o + 1] = gr.c[1];
                im.data[o + 2] = gr.c[2];
                im.data[o + 3] = Math.min(255, gr.n * 100 + 100);
            }
        }
        x.putImageData(im, 0, 0);
        W.colorBG = c;
    },

    /* ---- drawing ----------------------------------------------------------- */

    render: function (ctx) {
        var W = kelvor.wind, g = W.grid, m = cpApp.map;
        if (!g || !g.ud) return;
        var C = kelvor.settings.k.C;
        if (W.colorBG && (W.grp === 1 ? C.i_chart_wind_iso : C.i_chart_stream_iso)) {
            var x1 = m.getXpos(g.x1) - ctx.cxzero, x2 = m.getXpos(g.x2) - ctx.cxzero;
            var y1 = m.getYpos(g.y2) - ctx.cyzero, y2 = m.getYpos(g.y1) - ctx.cyzero;
            ctx.drawImage(W.colorBG, x1, y1, x2 - x1, y2 - y1);
        }
        var cell = 0;
        for (var sy = ctx.y1 + 50; sy < ctx.y2; sy += 50) {
            for (var sx = Math.floor(ctx.x1 / 50) * 50 + 10; sx < ctx.x2; sx += 50) {
                cell++;
                var py = sy - 15;
                var ll = m.getLatLon(py + ctx.cyzero, sx + ctx.cxzero);
                var w = W.getWind(ll.lat, ll.lon);
                if (!w) continue;
                var speed = Math.sqrt(w.u * w.u + w.v * w.v);
                var dir = Math.atan2(w.v, -w.u) + Math.PI / 2;
                if (W.grp === 1) W.windArrow(ctx, sx, py, dir, speed);
                else if (cell % 2) {
                    if (speed > 0.06) {
                        ctx.fillStyle = "black";
                        ctx.font = "11px sans-serif";
                        ctx.fillText(kelvor.settings.fmtSpeed(speed), sx, py);
                    }
                } else W.streamArrow(ctx, sx, py, dir, speed);
            }
        }
    },

    /* A wind barb: shaft towards the wind, pennants of 50 knots, barbs of
    ** 10 and a short barb for the rest. */
    windArrow: function (ctx, x, y, dir, speed) {
        var kn = speed * 1.94384;
        ctx.save();
        ctx.translate(x, y);
        ctx.rotate(dir);
        ctx.scale(0.6, 0.6);
        ctx.strokeStyle = "black";
        ctx.fillStyle = "black";
        ctx.lineWidth = 1;
        ctx.beginPath();
        ctx.moveTo(0, 0);
        ctx.lineTo(0, -40);
        ctx.moveTo(-4, -4);
        ctx.lineTo(0, 0);
        ctx.lineTo(4, -4);
        ctx.stroke();
        var yy = -40;
        while (kn >= 50) {
            ctx.beginPath();
            ctx.moveTo(0, yy);
            ctx.lineTo(15, yy + 5);
            ctx.lineTo(0, yy + 10);
            ctx.fill();
            yy += 15;
            kn -= 50;
        }
        ctx.beginPath();
        while (kn >= 10) {
            ctx.moveTo(0, yy);
            ctx.lineTo(15, yy - 5);
            yy += 5;
            kn -= 10;
        }
        if (kn > 1) {
            ctx.moveTo(0, yy);
            ctx.lineTo(15 * kn / 10, yy - 5 * kn / 10);
        }
        ctx.stroke();
        ctx.restore();
    },

    streamArrow: function (ctx, x, y, dir, speed) {
        var s = Math.max(0.5, Math.min(1.5, speed * 1.5));
        var p = [5, -10, 5, 10, 10, 10, 0, 15, -10, 10, -5, 10, -5, -10];
        ctx.save();
        ctx.translate(x, y);
        ctx.rotate(dir);
        ctx.beginPath();
        for (var i = 0; i < p.length; i += 2) {
            if (i) ctx.lineTo(p[i] * s, p[i + 1] * s);
            else ctx.moveTo(p[i] * s, p[i + 1] * s);
        }
        ctx.closePath();
        ctx.strokeStyle = "black";
        ctx.lineWidth = 1;
        ctx.stroke();
        ctx.restore();
    },

    /* ---- legend, time selector, animation ------------------------------- */

    _fmt: function (v) {
        return String(kelvor.settings.fmtSpeed(v)).replace(/\.00(?!\d)/, "").replace(/\.0(?!\d)/, "");
    },

    windLegend: function () {
        var W = kelvor.wind, h = "<table class=\"wind_legend\"><tr>";
        for (var i = 0; i < 7; i++) {
            var sp = W.max * i / 6, c = W.rgbGradient(W.legend, sp, W.max).c;
            h += "<td style=\"background:rgb(" + Math.round(c[0]) + "," + Math.round(c[1]) + "," + Math.round(c[2]) +
                ")\">&gt;" + W._fmt(sp) + "</td>";
        }
        h += "</tr></table>";
        if (W.vtlist.length) {
            var days = ["Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"];
            var months = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
            var two = function (n) { return (n < 10 ? "0" : "") + n; };
            h += "<div id=\"windmenu\"><select id=\"np_html_wind_time\" onchange=\"kelvor.wind.setFC(this.value)\">";
            for (var j = 0; j < W.vtlist.length; j++) {
                var d = new Date(W.vtlist[j] * 1000);
                h += "<option value=\"" + W.vtlist[j] + "\">" + days[d.getDay()] + " " + months[d.getMonth()] + " " +
                    d.getDate() + " - " + two(d.getHours()) + ":" + two(d.getMinutes()) + "</option>";
            }
            h += "</select>" +
                "<img class=\"img50\" src=\"img/interface-76.png\" alt=\"\" onclick=\"kelvor.wind.windFinderStep(-1)\">" +
                "<img class=\"img50\" src=\"img/interface-75.png\" alt=\"\" onclick=\"kelvor.wind.windFinderStep(1)\">" +
                "<img class=\"img50\" src=\"img/dvplay.png\" alt=\"\" onclick=\"kelvor.wind.play(1)\">" +
                "<img class=\"img50\" src=\"img/dvstop.png\" alt=\"\" onclick=\"kelvor.wind.play(0)\">" +
                "<img class=\"img50\" src=\"img/ic50-earth.png\" alt=\"\" onclick=\"kelvor.wind.windFinderMenu(kelvor.wind.mode)\">" +
                "<span class=\"np_close_inline\" onclick=\"kelvor.wind.windFinderOff()\">&times;</span></div>";
        }
        var dash = kelvor.aux.el("cp_windfinder_dash");
        if (dash) {
            dash.innerHTML = h;
            kelvor.aux.removeClass(dash, "none");
        }
    },

    /* Moves the time selector by s entries, clamped, and loads that step. */
    windFinderStep: function (s) {
        var W = kelvor.wind, sel = kelvor.aux.el("np_html_wind_time");
        if (!sel || !sel.options.length) return;
        var i = Math.max(0, Math.min(sel.options.length - 1, sel.selectedIndex + Number(s || 0)));
        sel.selectedIndex = i;
        W.setFC(sel.options[i].value);
    },

    play: function (m) {
        var W = kelvor.wind;
        if (W._timer) window.clearInterval(W._timer);
        W._timer = null;
        if (!m) return;
        W._timer = window.setInterval(function () {
            var sel = kelvor.aux.el("np_html_wind_time");
            if (!sel || !sel.options.length) return;
            sel.selectedIndex = (sel.selectedIndex + 1) % sel.options.length;
            W.setFC(sel.options[sel.selectedIndex].value);
        }, 1500);
    }
};
