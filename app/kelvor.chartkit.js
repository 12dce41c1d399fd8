/*
** kelvor.chartkit.js: the chart pack in use.
**
** Makes the host open a pack, reads the pack's documents (chart list, tile
** availability, chart info markers, tide stations, overlay) into memory,
** chooses the chart to show first, draws chart frames and marks a pack
** the server listed as old. Also the chart kit bar, which switches
** between installed kits, charts and map languages, and the kit dialogue:
** the kits.json list of the chart server set in Settings, downloads
** through the host with a progress dialogue, deleting kits, the daily
** check for old packs and overlay refreshes.
*/

kelvor.chartkit = {
    chartList: [],
    markerList: [],
    langlist: [],
    avTiles: {},
    navrte: null,
    vectorMap: null,
    update: {},
    updatePos: [],
    outdated: false,

    /* pack id to file name: 2 -> "A000002.marepack" */
    makeFileName: function (id) {
        var t = String(Math.floor(Number(id)));
        while (t.length < 6) t = "0" + t;
        return "A" + t + ".marepack";
    },

    _json: function (text, dflt) {
        if (text === false) return dflt;
        try {
            return JSON.parse(text);
        } catch (e) {
            console.log("chartkit: " + e);
            return dflt;
        }
    },

    /* Opens pack dbname and loads its documents. page: false keeps the view,
    ** -1 picks the best chart and shows the menu, a number centres on that
    ** entry of the chart list. */
    loadChartKit: function (dbname, page) {
        if (dbname === "void") return;
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        ck._setLangs(dbname, ck._openPack(dbname));
        ck._loadCharts();
        var showMenu = page === -1;
        if (page === -1) page = ck._bestChart();
        ck.loadmarker(k.maplang[dbname]);
        ck.loadOverlay();
        if (page !== false) ck.centerOnChart(page);
        /* a new pack's bar lists its own charts and languages */
        if (showMenu) ck.menu();
        cpApp.update();
        ck.setOutDated();
    },

    /* Opens dbname on the host, the base chart when the host cannot, and
    ** returns the pack's marker languages as [lang, count] rows, fewest
    ** markers first. A pack that cannot answer the query leaves the base
    ** chart open and gives no rows. */
    _openPack: function (dbname) {
        var map = cpApp.map, rows = [];
        map.clearImageList();
        var r = getSync("/getSetState/chartdb=" + dbname);
        if (parseInt(r, 10) === 500) getSync("/getSetState/chartdb=A000002.marepack");
        /* mapVersion names the requested pack even after the fallback; tile
        ** paths do not depend on it */
        map.mapVersion = String(dbname).split(".")[0];
        kelvor.settings.k.chartkit = dbname;
        try {
            rows = JSON.parse(postSync("/MexecSql",
                "SELECT l,count(l) FROM kvt WHERE k='mrk' AND l <> '**' GROUP BY l ORDER BY 2 ASC"));
            if (!Array.isArray(rows)) rows = [];
        } catch (e) {
            getSync("/getSetState/chartdb=A000002.marepack");
            map.mapVersion = "A000002";
            rows = [];
        }
        return rows;
    },

    /* The language list of the bar, and the map language of a pack opened
    ** for the first time. */
    _setLangs: function (dbname, rows) {
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        ck.langlist = [];
        for (var i = 0; i < rows.length; i++) ck.langlist.push(rows[i][0]);
        if (!k.maplang) k.maplang = {};
        if (k.maplang[dbname]) return;
        var loc = kelvor.settings.host.loc || [];
        var found = null;
        for (var j = 0; j < rows.length && !found; j++) {
            if (rows[j][0] === loc[0] || rows[j][0] === loc[1]) found = rows[j][0];
        }
        /* the locale match is overwritten on purpose: a pack opens in
        ** its least-marked language first */
        k.maplang[dbname] = rows.length ? rows[0][0] : "en";
    },

    /* The chart list and the tiles the pack holds; a pack without the
    ** avtiles2 document has its tiles listed from the tile table. */
    _loadCharts: function () {
        var ck = kelvor.chartkit;
        ck.chartList = ck._json(getSync("/getMapData/chartlist"), []);
        if (!Array.isArray(ck.chartList)) ck.chartList = [];
        var av = ck._json(getSync("/getMapData/avtiles2"), false);
        if (av === false || av === null || typeof av !== "object") {
            av = {};
            var zyx = ck._json(postSync("/MexecSql", "SELECT zyx FROM tiles"), []);
            if (Array.isArray(zyx)) {
                for (var t = 0; t < zyx.length; t++) av[zyx[t][0]] = true;
            }
        }
        ck.avTiles = av;
    },

    /* The entry of the chart list to open a pack at: the largest scale
    ** number under 1:5,000,000, the first entry when none is. */
    _bestChart: function () {
        var list = kelvor.chartkit.chartList, best = 0, bestSc = -1;
        for (var c = 0; c < list.length; c++) {
            var sc = Number(list[c].sc);
            if (sc < 5000000 && sc > bestSc) {
                bestSc = sc;
                best = c;
            }
        }
        return best;
    },

    setOutDated: function () {
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        var id = parseInt(String(k.chartkit).substring(1, 7), 10);
        ck.outdated = Array.isArray(k.oldmaps) && k.oldmaps.indexOf(id) >= 0;
    },

    /* Chart info markers and tide stations in the map language lang. */
    loadmarker: function (lang) {
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        getSync("/getSetState/mlang=" + lang);
        var list = ck._json(getSync("/getMapDataA/mrk"), []);
        if (!Array.isArray(list)) list = [];
        var mk = kelvor.marker && kelvor.marker.prototype;
        for (var i = 0; i < list.length; i++) {
            list[i].onUp = ck.showMrk;
            if (mk && mk.dist) list[i].dist = mk.dist;
        }
        ck.markerList = list;
        try {
            var st = JSON.parse(getSync("/getMapData/tides"));
            kelvor.tides.stationList = st || {};
            for (var id in st) {
                var s = st[id];
                list.push({
                    a: s,
                    x: kelvor.geo.lon2x(Number(s.lon)),
                    y: kelvor.geo.lat2y(Number(s.lat)),
                    txt: s.name,
                    s: 400000,
                    onUp: kelvor.tides.showTide,
                    render: kelvor.tides.renderMarker
                });
            }
        } catch (e) {
            console.log("tides: " + e);
        }
        k.maplang[k.chartkit] = lang;
    },

    /* An empty fairway and an empty vector layer, filled from the pack's
    ** overlay document where the pack has one. */
    loadOverlay: function () {
        var ck = kelvor.chartkit;
        ck.navrte = new kelvor.navrte("No NavRTE");
        ck.vectorMap = (typeof RX !== "undefined" && RX.wglmap) ? new RX.wglmap() : null;
        var id = parseInt(String(kelvor.settings.k.chartkit).substring(1, 7), 10);
        if (!(id > 2)) return;
        var o = ck._json(getSync("/kvt/" + id), {});
        if (!o || typeof o !== "object" || !Object.keys(o).length) return;
        if (ck.vectorMap) {
            ck.vectorMap.style = o.style;
            ck.vectorMap.map = o.map;
            if (ck.initVecMap) ck.initVecMap(o);
        }
    },

    centerOnChart: function (i) {
        var ck = kelvor.chartkit, c = ck.chartList[i];
        if (!c) return;
        for (var j = 0; j < ck.chartList.length; j++) ck.chartList[j].selected = false;
        c.selected = true;
        cpApp.map.setPosWorldMerc(Number(c.x1), Number(c.y1), Number(c.x2), Number(c.y2));
    },

    /* The finest chart that holds the point (bounds exclusive), else the
    ** last one. */
    showBestChart: function (x, y) {
        var ck = kelvor.chartkit, best = null;
        for (var i = 0; i < ck.chartList.length; i++) {
            var c = ck.chartList[i];
            if (x > c.x1 && x < c.x2 && y > c.y1 && y < c.y2 && (!best || Number(c.sc) < Number(best.sc))) best = c;
        }
        if (!best) best = ck.chartList[ck.chartList.length - 1];
        if (!best) return;
        cpApp.map.setPosMM(x, y, 17, false);
        cpApp.map.setScale(Math.min(10000000, Number(best.sc) / 2.5));
    },

    renderMapFrame: function (ctx) {
        var list = kelvor.chartkit.chartList, f = ctx.scm;
        var vx1 = ctx.sx1 / f, vy1 = ctx.sy1 / f, vx2 = ctx.sx2 / f, vy2 = ctx.sy2 / f;
        for (var i = 0; i < list.length; i++) {
            var c = list[i];
            if (!c.po || c.po.length < 4 || c.x2 < vx1 || c.x1 > vx2 || c.y2 < vy1 || c.y1 > vy2) continue;
            ctx.beginPath();
            for (var j = 0; j + 1 < c.po.length; j += 2) {
                var px = Math.round(c.po[j] * f - ctx.cxzero), py = Math.round(c.po[j + 1] * f - ctx.cyzero);
                if (j) ctx.lineTo(px, py);
                else ctx.moveTo(px, py);
            }
            ctx.closePath();
            ctx.strokeStyle = c.selected ? "rgba(255,0,255,0.8)" : "rgba(255,0,255,0.6)";
            ctx.lineWidth = c.selected ? 5 : 2;
            ctx.stroke();
        }
    },

    /* Place names near a point (whole world metres), or its position. */
    gazetteer: function (x, y) {
        var r = kelvor.chartkit._json(getSync("/gazetteer/" + Math.round(x) + "/" + Math.round(y)), []);
        if (Array.isArray(r) && r.length) {
            var names = [];
            for (var i = 0; i < r.length && i < 2; i++) names.push(r[i].n);
            return names.join(",");
        }
        var lat = kelvor.geo.y2lat(y), lon = kelvor.geo.x2lon(x);
        return kelvor.settings.fmtLat(lat) + " " + kelvor.settings.fmtLon(lon);
    },

    /* The version text of pack id, read by opening it on the host; 0 when
    ** the pack cannot be opened. Leaves that pack open. */
    checkversion: function (id) {
        var r = getSync("/getSetState/chartdb=" + kelvor.chartkit.makeFileName(id));
        if (parseInt(r, 10) === 0) {
            var v = getSync("/getMapData/version");
            return v === false ? 0 : v;
        }
        return 0;
    },

    /* The chart info layer: tide stations draw themselves; a chart marker
    ** of the pack's mrk list shows its icon `i` (a dot while the icon loads
    ** or has none) and its label `txt`, while the scale is at most its `s`. */
    renderMarker: function (ctx) {
        var ck = kelvor.chartkit, list = ck.markerList;
        for (var i = 0; i < list.length; i++) {
            var m = list[i];
            if (m.render && m.render !== ck.renderMarker) {
                m.render(ctx, m);
                continue;
            }
            if (m.s !== undefined && !(ctx.mapScale <= Number(m.s))) continue;
            var x = Math.round(m.x * ctx.scm - ctx.cxzero), y = Math.round(m.y * ctx.scm - ctx.cyzero);
            if (x < ctx.x1 - 50 || x > ctx.x2 + 50 || y < ctx.y1 - 50 || y > ctx.y2 + 50) continue;
            var img = m.i ? ck._icon(m.i) : null, h = 8;
            if (img && img.complete && img.naturalWidth) {
                h = img.naturalHeight;
                ctx.drawImage(img, x - img.naturalWidth / 2, y - h / 2);
            } else {
                ctx.beginPath();
                ctx.arc(x, y, 5, 0, 2 * Math.PI);
                ctx.fillStyle = "rgba(255,0,255,0.8)";
                ctx.fill();
            }
            if (m.txt) {
                ctx.save();
                kelvor.aux.labelStyle(ctx);
                ctx.strokeText(String(m.txt), x, y + h / 2 + 14);
                ctx.fillText(String(m.txt), x, y + h / 2 + 14);
                ctx.restore();
            }
        }
    },

    /* Icons of chart markers, loaded once per path. */
    _icons: {},
    _icon: function (src) {
        var c = kelvor.chartkit._icons;
        if (!c[src]) {
            c[src] = new Image();
            c[src].onload = function () { if (cpApp && cpApp.map) cpApp.map.paintByTimer(); };
            c[src].src = src;
        }
        return c[src];
    },

    /* "Near Me": chart markers within r world metres, as the gazetteer
    ** gives its entries: name n, class c, place x, y, and the marker's
    ** weight q, which lists it before plain places. */
    findByRange: function (x, y, r) {
        var list = kelvor.chartkit.markerList, out = [];
        for (var i = 0; i < list.length; i++) {
            var m = list[i];
            var d = Math.sqrt((m.x - x) * (m.x - x) + (m.y - y) * (m.y - y));
            if (!(d < r)) continue;
            /* a Near Me row of a chart marker opens the marker's dialogue */
            var e = { n: m.n !== undefined ? m.n : m.txt, x: m.x, y: m.y, m: m,
                onUp: function () { kelvor.chartkit.showMrk.call(this.m); } };
            if (m.c !== undefined) e.c = m.c;
            if (m.q !== undefined) e.q = Number(m.q);
            out.push(e);
        }
        return out;
    },

    find: function (so) {
        var ck = kelvor.chartkit, list = ck.markerList;
        if (ck.vectorMap && ck.vectorMap.find) {
            ck.vectorMap.find(so, { e: null, onUp: ck.showMrk, x: so.p.x, y: so.p.y });
        }
        for (var i = 0; i < list.length; i++) {
            var m = list[i];
            if (!(so.mapScale <= Number(m.s))) continue;
            var d = Math.sqrt((m.x - so.p.x) * (m.x - so.p.x) + (m.y - so.p.y) * (m.y - so.p.y));
            if (d < so.d) {
                so.d = d;
                so.o = m;
            }
        }
    },

    /* A chart info marker or an overlay feature was tapped. Overlay
    ** features with an action show their Name and Description; a chart
    ** marker shows its name, its label and a link to its information page
    ** `a`, in the wide dialog when its `q` is above 1. */
    showMrk: function () {
        var aux = kelvor.aux, d = aux.el("cp_dialog_common");
        if (!d || !this) return;
        var e = this.e;
        if (e) {
            if (!e.action) return;
            aux.setText(d, "<h2></h2><p></p>");
            d.children[0].textContent = e.Name === undefined ? "" : String(e.Name);
            d.children[1].textContent = e.Description === undefined ? "" : String(e.Description);
            cpApp.sizeDialog("np_dialog_common");
            return;
        }
        var m = this;
        aux.setText(d, "<h2></h2><p></p>");
        d.children[0].textContent = m.n !== undefined ? String(m.n) : (m.txt !== undefined ? String(m.txt) : "");
        d.children[1].textContent = m.txt !== undefined && m.n !== undefined ? String(m.txt) : "";
        if (m.a) {
            var a = document.createElement("a");
            a.href = String(m.a);
            a.target = "_blank";
            a.textContent = "More information";
            d.appendChild(a);
        }
        if (Number(m.q) > 1) cpApp.sizeDialog("np_dialog_common", 720);
        else cpApp.sizeDialog("np_dialog_common");
    },

    /* Scans the overlay for the two route layers: the fairway becomes the
    ** kit's navrte, fairway markers go to the AIS display. */
    initVecMap: function (o) {
        var ck = kelvor.chartkit, map = o && o.map;
        if (!Array.isArray(map)) return;
        for (var i = 0; i < map.length; i++) {
            var e = map[i];
            if (!e || !Array.isArray(e._XY)) continue;
            if (e._LY === "RTE_FAIRWAY") {
                ck.navrte = new kelvor.navrte(e.NAME, e._XY);
            } else if (e._LY === "RTE_MARKER" && kelvor.ais && kelvor.ais.addMarker) {
                kelvor.ais.addMarker({ _ID: e._ID, NAME: e.NAME, lon: e._XY[0], lat: e._XY[1] });
            }
        }
    },

    /* ---- switching: the chart kit bar ----------------------------------- */

    /* Names of the map languages a pack can offer, each in its own language. */
    _langNames: { en: "English", de: "Deutsch", dk: "Dansk", sv: "Svenska", no: "Norsk", fr: "Fran\u00e7ais",
        es: "Espa\u00f1ol" },

    /* Opens the chart kit bar and its dashboard, which switch between the
    ** installed kits, go to a chart of the kit in use and pick its map
    ** language. */
    menu: function () {
        kelvor.chartkit.fillDash();
        cpApp.showMenuBar("cp_chartkit_menu");
        cpApp.showDashBoard("cp_chartkit_dash");
    },

    /* The packs to switch between, as { file, name }: the base chart, then
    ** the installed kits by pack id (pack 1 is the client, not a chart),
    ** and the pack in use should the list not know it. */
    kitChoices: function () {
        var ck = kelvor.chartkit, k = kelvor.settings.k, list = k.chartKitList2 || {};
        var out = [{ file: "A000002.marepack", name: "Base chart" }];
        var ids = Object.keys(list).map(Number).filter(function (id) { return id > 2; });
        ids.sort(function (a, b) { return a - b; });
        for (var i = 0; i < ids.length; i++) {
            var f = ck.makeFileName(ids[i]);
            out.push({ file: f, name: list[ids[i]].name ? String(list[ids[i]].name) : f });
        }
        var known = out.some(function (e) { return e.file === k.chartkit; });
        if (!known && k.chartkit) out.push({ file: String(k.chartkit), name: String(k.chartkit) });
        return out;
    },

    /* A select of the dashboard under its small label. */
    _dashSelect: function (label, id, act, options) {
        var h = "<div class=\"dash_cell\"><span class=\"dash_l\">" + label + "</span><select id=\"" + id +
            "\" onchange=\"" + act + "\">";
        for (var i = 0; i < options.length; i++) {
            h += "<option value=\"" + kelvor.aux.esc(options[i][0]) + "\">" + kelvor.aux.esc(options[i][1]) + "</option>";
        }
        return h + "</select></div>";
    },

    fillDash: function () {
        var ck = kelvor.chartkit, k = kelvor.settings.k, aux = kelvor.aux, i;
        var d = aux.el("cp_chartkit_dash");
        if (!d) return;
        var kits = ck.kitChoices(), kitOpts = [], chartOpts = [["", "Go to chart"]], langOpts = [];
        for (i = 0; i < kits.length; i++) kitOpts.push([kits[i].file, kits[i].name]);
        for (i = 0; i < ck.chartList.length; i++) {
            var c = ck.chartList[i];
            chartOpts.push([String(i), String(c.na || c.nu || c.n || i + 1).replace(/_/g, " ")]);
        }
        for (i = 0; i < ck.langlist.length; i++) {
            langOpts.push([ck.langlist[i], ck._langNames[ck.langlist[i]] || ck.langlist[i]]);
        }
        var h = ck._dashSelect("Chart kit", "i_chartkit_kit", "kelvor.chartkit.switchKit(this.value)", kitOpts) +
            ck._dashSelect("Chart", "i_chartkit_chart", "kelvor.chartkit.pickChart(this.value)", chartOpts);
        if (langOpts.length) {
            h += ck._dashSelect("Map language", "i_chartkit_lang", "kelvor.chartkit.pickLang(this.value)", langOpts);
        }
        aux.setText(d, h);
        aux.el("i_chartkit_kit").value = k.chartkit;
        var lang = aux.el("i_chartkit_lang");
        if (lang && k.maplang) lang.value = k.maplang[k.chartkit];
    },

    /* Opens another pack at its best chart; the bar then lists its charts. */
    switchKit: function (file) {
        if (!file || file === kelvor.settings.k.chartkit) return;
        kelvor.chartkit.loadChartKit(file, -1);
        kelvor.settings.saveOnly();
    },

    /* Goes to chart i of the kit in use. The select returns to its prompt,
    ** so the same chart can be picked again after panning away. */
    pickChart: function (i) {
        if (i === "" || i === null || i === undefined) return;
        kelvor.chartkit.centerOnChart(Number(i));
        var sel = kelvor.aux.el("i_chartkit_chart");
        if (sel) sel.value = "";
        cpApp.update();
    },

    pickLang: function (lang) {
        if (!lang) return;
        kelvor.chartkit.loadmarker(lang);
        kelvor.settings.saveOnly();
        cpApp.update();
    },

    /* ---- the kit dialogue ----------------------------------------------- */

    /* Opens the kit dialogue. from says who asks, the chart kit bar (0)
    ** or the tide panel when its station has no data (1); both get the
    ** same list. */
    updateChartKit: function (from) {
        kelvor.chartkit.showKitList();
    },

    /* Fills the kit dialogue and shows it; with settings, a button that
    ** leads to the chart server's field in Settings. */
    _kitDialog: function (body, settings) {
        var aux = kelvor.aux;
        aux.setText("np_chartkit_add_form", "<h2>" + "Chart kits" + "</h2>" + body + (settings ? "<div class=\"btn_row\">" +
            "<button type=\"button\" id=\"btn_chartkit_settings\" onclick=\"kelvor.chartkit.serverSettings()\">" +
            "Settings" + "</button></div>" : ""));
        if (cpApp.activeDialog !== aux.el("np_chartkit_add")) cpApp.sizeDialog("np_chartkit_add");
    },

    /* Lists the kits of the chart server that Settings name. Without a
    ** server, or when it cannot be reached, the dialogue says so and leads
    ** to Settings. */
    showKitList: function () {
        var ck = kelvor.chartkit, esc = kelvor.aux.esc, server = kelvor.settings.getChartServer();
        if (!server) {
            ck._kitDialog("<p>" + "No chart server is set." + "</p><p>" +
                "Enter the address of your chart server in Settings, Chart." + "</p>", true);
            return;
        }
        ck._kitDialog("<p>" + "Connecting" + "</p>", false);
        ck.fetchKits(server, function (update, fault) {
            /* the user may have closed the dialogue meanwhile */
            if (cpApp.activeDialog !== kelvor.aux.el("np_chartkit_add")) return;
            if (!update) {
                ck._kitDialog("<p>" + (fault === "reply" ? "The chart server sent no list of chart kits:" :
                    "The chart server could not be reached:") + "</p><p><b>" + esc(server) + "</b></p>", true);
                return;
            }
            ck.update = update;
            ck._kitDialog(ck.kitForm(update, kelvor.settings.k.chartKitList2), false);
        });
    },

    /* GETs the server's kits.json and calls done(update) with its kits
    ** (see parseKits), or done(null, "net") when the server does not
    ** answer and done(null, "reply") when the answer is no kit list, an
    ** HTTP error among them. */
    fetchKits: function (server, done) {
        var xhr = getAsync("http://" + server + "/kits.json", function (text) {
            if (text === false) {
                done(null, xhr && xhr.status ? "reply" : "net");
                return;
            }
            var r = kelvor.chartkit._json(text, null);
            var u = r && typeof r === "object" ? kelvor.chartkit.parseKits(r.update) : null;
            done(u, u ? "" : "reply");
        });
        /* a server that takes the connection and never answers */
        try {
            xhr.timeout = 20000;
        } catch (e) {
            console.log("fetchKits: " + e);
        }
    },

    /* The kits of a server's list that can be downloaded, by pack id: a
    ** whole pack id above 2 (1 and 2 are the program's own packs, which it
    ** writes itself), a version and a size below 2^31 and a CRC-32 in
    ** hexadecimal. Other entries are left out. stat is 2 for a kit that is
    ** installed in the listed version. null when update is no object. */
    parseKits: function (update) {
        var list = kelvor.settings.k.chartKitList2 || {}, out = {};
        if (!update || typeof update !== "object") return null;
        function whole(v, min) {
            return typeof v !== "boolean" && v !== "" && v !== null && Math.floor(Number(v)) === Number(v) &&
                Number(v) >= min && Number(v) < 2147483648;
        }
        for (var key in update) {
            var u = update[key];
            if (!u || typeof u !== "object" || !whole(u.pid, 3) || !whole(u.version, 0) || !whole(u.filesize, 1)) continue;
            if (!/^[0-9a-fA-F]{1,8}$/.test(String(u.crc32))) continue;
            var pid = Number(u.pid), mine = list[pid];
            out[pid] = {
                pid: pid,
                name: u.name === undefined || u.name === null ? "" : String(u.name),
                version: Number(u.version),
                filesize: Number(u.filesize),
                crc32: String(u.crc32),
                stat: mine && Number(mine.version) === Number(u.version) ? 2 : 0
            };
        }
        return out;
    },

    /* A kit's state as the list shows it: installed in the listed version,
    ** installed in another one, or not installed. */
    kitState: function (u, have) {
        var mine = have && have[u.pid];
        if (!mine) return "New";
        return Number(mine.version) === Number(u.version) ? "Installed" : "Update";
    },

    /* The selection form: one row per kit with a box to tick, its name,
    ** size and state. */
    kitForm: function (update, have) {
        var ck = kelvor.chartkit, esc = kelvor.aux.esc;
        var ids = Object.keys(update).sort(function (a, b) { return a - b; });
        if (!ids.length) return "<p>" + "The chart server lists no chart kits." + "</p>";
        var h = "<form id=\"f_chartkit\" onsubmit=\"return false\"><table class=\"np_table\" id=\"t_chartkit_list\">";
        for (var i = 0; i < ids.length; i++) {
            var u = update[ids[i]], box = "kit_" + u.pid;
            h += "<tr><td><input type=\"checkbox\" name=\"kit\" id=\"" + box + "\" value=\"" + u.pid + "\"></td>" +
                "<td><label for=\"" + box + "\">" + esc(u.name || ck.makeFileName(u.pid)) + "</label></td><td>" +
                (u.filesize / 1000000).toFixed(1) + " MB</td><td class=\"kit_state\">" + ck.kitState(u, have) + "</td></tr>";
        }
        return h + "</table><p>" + "Ticked kits that are new or have an update are downloaded; ticked installed kits are deleted." +
            "</p><div class=\"btn_row\"><button type=\"button\" id=\"btn_chartkit_exec\" " +
            "onclick=\"kelvor.chartkit.applyKits()\">" + "Done" + "</button></div></form>";
    },

    /* The pack ids of the ticked boxes. */
    _ticked: function () {
        var boxes = document.querySelectorAll("#np_chartkit_add_form input[type=checkbox]"), out = [];
        for (var i = 0; i < boxes.length; i++) {
            var id = Number(boxes[i].value);
            if (boxes[i].checked && id > 0) out.push(id);
        }
        return out;
    },

    /* The button of the form: deleting installed kits asks first. */
    applyKits: function () {
        var ck = kelvor.chartkit, k = kelvor.settings.k, ids = ck._ticked(), names = [];
        for (var i = 0; i < ids.length; i++) {
            var u = ck.update[ids[i]];
            if (k.chartKitList2[ids[i]] && u && Number(u.stat) === 2) names.push(kelvor.aux.esc(u.name || ck.makeFileName(u.pid)));
        }
        if (!names.length) {
            ck.updateChartKitExec();
            return;
        }
        cpApp.yesno("<p>" + "Delete these chart kits?" + "</p><p>" + names.join(", ") + "</p>",
            "kelvor.chartkit.updateChartKitExec()", "kelvor.chartkit.reopenKitList()");
    },

    /* "No" to deleting: back to the list as the user left it. */
    reopenKitList: function () {
        cpApp.sizeDialog("np_chartkit_add");
    },

    /* The button of the dialogue without a usable server. */
    serverSettings: function () {
        cpApp.closeDlg();
        cpApp.showSettings("np_settings_chart");
        var f = kelvor.aux.el("i_chart_server");
        if (f) f.focus();
    },

    /* Deletes or queues each ticked kit, then downloads the queue. Deleting
    ** closes the pack in use on the host and checkversion leaves another
    ** one open, so the kit in use is opened again afterwards: the base
    ** chart when the kit in use was deleted. */
    updateChartKitExec: function () {
        var ck = kelvor.chartkit, k = kelvor.settings.k, ids = ck._ticked();
        var inUse = parseInt(String(k.chartkit).substring(1, 7), 10), lost = false;
        ck.updatePos = [];
        for (var i = 0; i < ids.length; i++) {
            var id = ids[i], u = ck.update[id];
            if (k.chartKitList2[id]) {
                getSync("/getSetState/delchartdb=" + ck.makeFileName(id));
                delete k.chartKitList2[id];
                if (id === inUse) lost = true;
                if (u && Number(u.stat) === 2) continue;
            }
            if (!u) continue;
            if (String(u.version) === String(ck.checkversion(u.pid))) {
                u.stat = 2;
                k.chartKitList2[id] = u;
            } else {
                ck.updatePos.push(id);
            }
        }
        ck.loadChartKit(lost ? "A000002.marepack" : k.chartkit, false);
        ck.fillDash();
        if (ck.updatePos.length) {
            ck._progress("Connecting");
            ck.download(0);
        } else {
            cpApp.closeDlg();
            kelvor.settings.save();
        }
        ck.checkForNewMaps(true);
    },

    _progress: function (html) {
        var aux = kelvor.aux;
        aux.setText("np_chartkit_progress_text", html);
        if (cpApp.activeDialog !== aux.el("np_chartkit_progress")) cpApp.sizeDialog("np_chartkit_progress");
    },

    /* Download failure labels by the absolute value of the host's error code. */
    _dlLabels: ["", "Internal Error", "Server not found", "Network Error", "Device Storage full", "Download Failed",
        "Provider Error", "Aborted"],

    /* Label of a download error code, by its absolute value. */
    dlLabel: function (e) {
        var l = kelvor.chartkit._dlLabels[Math.abs(Number(e)) || 0];
        return l === undefined ? "" : l;
    },

    /* The progress lines of one poll: name, whole percentage, bar, MB. */
    progressHtml: function (u, b) {
        var size = Number(u.filesize) || 0, got = Number(b) || 0;
        var pc = size > 0 ? got * 100 / size : 0;
        return "<div id=\"dl_name\">" + kelvor.aux.esc(u.name) + "</div>" +
            "<div id=\"dl_pc\">" + pc.toFixed(0) + " %</div>" +
            "<div class=\"dl_bar\" style=\"border:1px solid #888;height:12px\"><div id=\"dl_bar_in\" style=\"background:#1a8;height:12px;width:" +
            Math.min(100, pc).toFixed(0) + "%\"></div></div>" +
            "<div id=\"dl_mb\">" + (got / 1000000).toFixed(2) + " MB / " + (size / 1000000).toFixed(2) + " MB</div>";
    },

    /* Downloads queue entry i through the host, polling once a second. */
    download: function (i) {
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        if (i >= ck.updatePos.length) {
            ck.updateChartKitDone(ck.updatePos.length ? ck.updatePos[ck.updatePos.length - 1] : 0);
            return;
        }
        var u = ck.update[ck.updatePos[i]];
        var r = ck._json(getSync("/download/" + u.pid + " " + u.version + " " + u.filesize + " " + u.crc32), null);
        /* a reply that does not parse counts as an internal error */
        if (!r || Number(r.s) !== 1) {
            ck._fail(r ? r.e : -1);
            return;
        }
        var timer = window.setInterval(function () {
            var p = ck._json(getSync("/download/*"), null);
            if (!p) return;
            if (Number(p.e) < 0) {
                window.clearInterval(timer);
                ck._fail(p.e);
                return;
            }
            ck._progress(ck.progressHtml(u, p.b));
            if (Number(p.s) === 0 && Number(p.e) === 0) {
                window.clearInterval(timer);
                u.stat = 2;
                k.chartKitList2[u.pid] = u;
                kelvor.settings.save();
                ck.download(i + 1);
            }
        }, 1000);
        ck._timer = timer;
    },

    /* Shows the failure's label and cancels. A kit installed earlier in the
    ** same queue closed the pack in use, so that one is opened again. */
    _fail: function (e) {
        kelvor.chartkit._progress("<div id=\"dl_label\">" + kelvor.chartkit.dlLabel(e) + "</div>");
        getSync("/download/**");
        kelvor.chartkit.loadChartKit(kelvor.settings.k.chartkit, false);
    },

    /* Closes the dialogue; after a download opens the last kit fetched. */
    updateChartKitDone: function (pid) {
        cpApp.closeDlg();
        if (pid) {
            kelvor.chartkit.checkForNewMaps(true);
            kelvor.chartkit.loadChartKit(kelvor.chartkit.makeFileName(pid), -1);
            kelvor.settings.save();
        } else {
            getSync("/download/**");
        }
    },

    /* Stores overlays whose version on the server differs from the stored
    ** one, as type 13 rows keyed by pack id, and reloads the one in use. */
    checkOvl: function (ovl) {
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        if (!ovl || typeof ovl !== "object") return;
        if (!k.ovlList) k.ovlList = {};
        for (var id in ovl) {
            var n = parseInt(id, 10);
            if (!(n > 0) || k.ovlList[id] === ovl[id]) continue;
            var doc = getSync(AJAXSERVER + "?getoverlay=" + n);
            if (doc === false) continue;
            getSync("/UexecSql/DELETE FROM kvt WHERE t=13 AND k=" + n);
            postSync("/UPexecSql/REPLACE INTO kvt (k,v,t,l) VALUES(" + n + ",?,13,'**')", doc);
            k.ovlList[id] = ovl[id];
            if (parseInt(String(k.chartkit).substring(1, 7), 10) === n) ck.loadOverlay();
        }
    },

    /* Asks, at most once a day unless forced, which of the known kits are
    ** old and how many new ones there are: the chart server's kit list when
    ** Settings name one, the cloud otherwise. Without a reachable server
    ** only the console hears of it. */
    checkForNewMaps: function (force) {
        var ck = kelvor.chartkit, k = kelvor.settings.k;
        var day = Math.round(Date.now() / 86400000);
        if (!force && !k.C.i_debug_mode && k.lastcheck === day) return;
        k.lastcheck = day;
        var server = kelvor.settings.getChartServer();
        if (server) {
            ck.fetchKits(server, function (update) {
                if (update) ck.countNewMaps(update);
                else console.log("checkForNewMaps: " + server);
            });
            return;
        }
        var host = kelvor.settings.host;
        var url = AJAXSERVER + "?checkmaps2=" + encodeURIComponent(k.userid) + "&alang=" + host.alang + "&tz=" + host.tz;
        postAsync(url, kelvor.chartkit.checkForNewMapsDone, JSON.stringify(k.chartKitList2), APPURLENC);
    },

    /* From the server's kit list: the number of kits not installed, and
    ** the installed kits the server has in another version (old). */
    countNewMaps: function (update) {
        var k = kelvor.settings.k, count = 0, old = [];
        for (var id in update) {
            var mine = k.chartKitList2[id];
            if (!mine) count++;
            else if (Number(mine.version) !== Number(update[id].version)) old.push(Number(id));
        }
        k.newMapCount = count;
        k.oldmaps = old;
        kelvor.chartkit.setOutDated();
        if (cpApp) cpApp.showRedMapDot();
    },

    checkForNewMapsDone: function (text) {
        var k = kelvor.settings.k, r;
        try {
            r = JSON.parse(text);
            if (!r || typeof r !== "object") throw new Error("no reply");
        } catch (e) {
            console.log("checkForNewMaps: " + e);
            return;
        }
        k.newMapCount = Number(r.count) || 0;
        if (r.appupdate && Number(r.appupdate.ver) > COREBUILD) k.appupdate = r.appupdate;
        if (r.vote) k.vote = r.vote;
        if (Array.isArray(r.ids)) k.oldmaps = r.ids;
        if (r.ovl) kelvor.chartkit.checkOvl(r.ovl);
        kelvor.chartkit.setOutDated();
        if (cpApp) {
            cpApp.showRedMapDot();
            cpApp.showRedInfoDot();
            cpApp.startFeedback();
        }
    }
};
