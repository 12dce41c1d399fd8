/*
** kelvor.boat.js: the own boat and the status exchange.
**
** Once a second, unless the map is busy, the boat posts to
** /getSetHostStat/ and turns the reply into the boat symbol, the fix text,
** the dashboards, the cross-track bar, route progress and the map's follow
** mode (updateDash2). It also steers along routes, writes the event log,
** lists what lies near the boat and lets the user drag the symbol.
*/

kelvor.boat = {
    gps: { lonX: null, latY: null, loctime: new Date().gT() },
    loctime: 0,
    activeWayPoint: false,
    activeBrg: 0,
    autoUpdate: false,
    paused: false,
    hadSignal: false,
    avghdg: 0,
    boatMove: false,
    step: 0,
    ticks: 0,
    nearList: [],
    _timer: null,

    /* The boat symbol can be held and moved by hand; the next status with
    ** a fix puts it back. Nothing goes to the host. */
    theBoat: Object.assign(new kelvor.marker(0, 0), {
        noauto: true,
        name: "Boat",
        onDown: function () {
            var b = kelvor.boat;
            b.boatMove = true;
            cpApp.unSelect();
            b.menu(true);
        },
        onMove: function (ctx, dx, dy) {
            this.x += dx;
            this.y += dy;
            if (cpApp && cpApp.map) cpApp.map.paintByTimer();
        },
        onUp: function () {
            var b = kelvor.boat;
            b.boatMove = false;
            if (cpApp) cpApp.update();
        }
    }),

    _placeBoat: function (lon, lat) {
        var b = kelvor.boat, M = kelvor.marker;
        var k = kelvor.settings.k;
        b.theBoat.x = M.getXpos(lon);
        b.theBoat.y = M.getYpos(lat);
        k.boat.lonX = lon;
        k.boat.latY = lat;
    },

    start: function () {
        var b = kelvor.boat, M = kelvor.marker;
        var k = kelvor.settings.k;
        kelvor.track.clearTrack();
        b.theBoat.x = M.getXpos(Number(k.boat.lonX));
        b.theBoat.y = M.getYpos(Number(k.boat.latY));
        b._ui();
        b.resume();
    },

    pause: function () {
        var b = kelvor.boat;
        b.paused = true;
        if (b._timer) window.clearInterval(b._timer);
        b._timer = null;
    },

    resume: function () {
        var b = kelvor.boat;
        b.paused = false;
        if (!b._timer) b._timer = window.setInterval(b.tick, 1000);
    },

    /* One status exchange; skipped while tiles are awaited or a finger is
    ** down, unless the boat itself is being dragged. */
    tick: function () {
        var b = kelvor.boat;
        var k = kelvor.settings.k;
        if (cpApp.map.busy() && !b.boatMove) return;
        b.ticks++;
        var url = "/getSetHostStat/" + k.S.i_settings_track_interval + "/" + k.S.i_settings_track_distance + "/" +
            (k.C.i_track_on ? 1 : 0) + "/" + kelvor.track.lastTrackTimeStamp;
        postAsync(url, b.updateDash, "*");
    },

    updateDash: function (text) {
        var b = kelvor.boat;
        if (text === false) return;
        var g;
        try {
            g = JSON.parse(text);
        } catch (e) {
            window.alert(text + "\n" + e.stack);
            return;
        }
        b.updateDash2(g);
    },

    /* Text and alarm colour of a fix value; intern is i_gps_intern. */
    fixText: function (fix, intern) {
        fix = Number(fix);
        if (fix === 999) return { t: "NO FIX", red: true };
        if (fix === 998) return { t: "NO NMEA", red: true };
        if (fix === 800) return { t: "AIS A", red: false };
        if (fix === 801) return { t: "AIS B", red: false };
        if (fix === 802) return { t: "RMC", red: false };
        if (fix > 0) return { t: fix + " Sat.", red: fix > 900 };
        if (fix < 0) return { t: kelvor.settings.fmtDist(Math.abs(fix)), red: fix < -50 };
        return { t: Number(intern) === 1 ? "NO FIX" : "GPS OFF", red: true };
    },

    /* Shows a value in its dashboard cell and in the right column's copy;
    ** null hides both. */
    showDashVal: function (id, text) {
        var el = kelvor.aux.el, show = kelvor.aux.show;
        var on = text !== null && text !== undefined;
        var e = el(id), e2 = el(id + "2");
        if (e) {
            e.innerHTML = on ? text : "---";
            if (e.parentNode) show(e.parentNode, on);
        }
        if (e2) {
            e2.innerHTML = on ? text : "---";
            if (e2.parentNode) show(e2.parentNode, on);
        }
    },

    /* Rate of turn from its AIS code: degrees a minute, or null. */
    rotText: function (r) {
        r = Number(r);
        if (r === -128 || !isFinite(r)) return null;
        var v = (r / 4.733) * Math.abs(r / 4.733);
        return (Math.abs(r) === 127 ? ">" : "") + v.toFixed(1) + "\u00b0/min";
    },

    /* Date, hour and minute, or local time by the frame counter. */
    fmtTime: function (d, step) {
        if (!d) return "Never";
        function p2(n) { return (n < 10 ? "0" : "") + n; }
        if (step & 1) return d.getFullYear() + "-" + p2(d.getMonth() + 1) + "-" + p2(d.getDate());
        if (step & 16) return p2(d.getUTCHours()) + ":" + p2(d.getUTCMinutes()) + " UTC";
        return p2(d.getHours()) + ":" + p2(d.getMinutes());
    },

    /*
    ** Range, bearing and times to the waypoint wp from boat p: ttg from the
    ** range, ete from the range plus the remaining legs, eta the date of
    ** arrival or false when the speed is 0.
    */
    progress: function (p, wp, spd, now) {
        var rng = p.geoDist(wp), dist = rng;
        if (wp.route) {
            var m = wp.route.m;
            for (var i = m.indexOf(wp) + 1; i > 0 && i < m.length; i++) dist += m[i - 1].geoDist(m[i]);
        }
        var ttg = spd > 0 ? rng / spd : 0, ete = spd > 0 ? dist / spd : 0;
        return {
            rng: rng, brg: p.brg(wp), dist: dist, ttg: ttg, ete: ete,
            eta: ete > 0 ? new Date((now + ete) * 1000) : false
        };
    },

    /*
    ** The view centre and rotation of a follow mode. mode is the radio's
    ** text; h the heading in degrees; sr the look-ahead in world metres.
    ** rot null leaves the rotation as it is.
    */
    followCenter: function (mode, x, y, h, activeBrg, hasWp, sr) {
        var RAD = kelvor.geo.RAD;
        function ahead(a) { return { x: x + Math.sin(a * RAD) * sr, y: y - Math.cos(a * RAD) * sr }; }
        var c;
        if (mode === "2") {
            c = ahead(h);
            c.rot = 0;
        } else if (mode === "3") {
            c = ahead(h);
            c.rot = -h;
        } else if (mode === "4") {
            c = hasWp ? ahead(activeBrg) : { x: x, y: y };
            c.rot = hasWp ? -activeBrg : null;
        } else {
            c = { x: x, y: y, rot: 0 };
        }
        return c;
    },

    /* Offset in pixels of the cross-track bar: 80 pixels per limit. */
    xteOffset: function (lr, limit, clamp) {
        var d = Math.round(lr / limit * 80);
        if (!isFinite(d)) d = 0;
        return Math.max(-clamp, Math.min(clamp, d));
    },

    _moveBar: function (d, text) {
        var el = kelvor.aux.el;
        var s = el("r_dist_outer_ship"), x = el("r_dist_xte");
        if (s) s.style.marginLeft = d + "px";
        if (x) {
            x.style.marginLeft = d + "px";
            x.innerHTML = text;
        }
    },

    xteBar: function () {
        var b = kelvor.boat, M = kelvor.marker, setText = kelvor.aux.setText;
        var k = kelvor.settings.k, s = kelvor.settings, max = Number(k.S.i_settings_xte_max);
        setText("r_dist_max_left", s.fmtDist(max));
        setText("r_dist_max_right", s.fmtDist(max));
        var wp = b.activeWayPoint, p = b.theBoat;
        var i = wp && wp.route ? wp.route.m.indexOf(wp) : -1;
        if (i > 0) {
            var a = wp.route.m[i - 1], mXte = wp.xte ? Number(wp.xte) : max;
            var ld = M.linedist(a.x, a.y, wp.x, wp.y, p.x, p.y);
            /* the latitude number goes into the cosine as it stands */
            var lr = ld.lr * ld.ab * Math.cos(k.boat.latY);
            b._moveBar(b.xteOffset(lr, mXte, 110), s.fmtDist(Math.abs(lr)));
            return;
        }
        var nr = kelvor.chartkit && kelvor.chartkit.navrte;
        if (!wp && nr && nr.b) {
            var d = b.xteOffset(-nr.b.lr * nr.b.ab * nr.b.dir, max, 120);
            b._moveBar(d, String(d));
            return;
        }
        b._moveBar(0, "");
    },

    /* The handler of each status reply: position and fix state, track,
    ** dashboard, cross-track bar, alarm monitor, waypoint progress, follow
    ** mode and map centre, AIS targets, in that order. */
    updateDash2: function (g) {
        var b = kelvor.boat;
        if (!g.loctime) g.loctime = new Date().gT();
        b.loctime = g.loctime;
        b.gps = g;
        b._takeFix(g);
        b._showValues(g);
        b.xteBar();
        if (kelvor.alarm && kelvor.alarm.running && kelvor.alarm.monitor) kelvor.alarm.monitor(b.theBoat);
        b.showDashVal("i_boat_rot", b.rotText(g.rot));
        b._showProgress(g);
        b._follow(g);
        /* rows of a feed that is not delivering are not trusted: the list is
        ** redrawn from the targets already known */
        if (kelvor.ais.setAisData) {
            kelvor.ais.setAisData(g.nmea_stat === 1 ? g : { ais: [], aisuserid: g.aisuserid });
        }
    },

    /* Moves the boat to the reply's position, the track on, and shows the
    ** fix state. A position off the chart counts as no fix at the default
    ** place; without a fix the reply takes the boat's last position. */
    _takeFix: function (g) {
        var b = kelvor.boat, M = kelvor.marker, el = kelvor.aux.el, show = kelvor.aux.show;
        var k = kelvor.settings.k;
        if (!(g.lonX >= -180 && g.lonX <= 180 && g.latY >= -80 && g.latY <= 80)) {
            g.fix = 0;
            g.lonX = 10.1;
            g.latY = 54.52;
            g.sog = 0;
            b._placeBoat(g.lonX, g.latY);
        }
        kelvor.track.updateTrack(g.track);
        var ft = b.fixText(g.fix, k.I.i_gps_intern), fe = el("i_boat_gps_fix");
        if (g.fix !== 0) b._placeBoat(Number(g.lonX), Number(g.latY));
        if (fe) {
            fe.innerHTML = ft.t;
            fe.style.backgroundColor = ft.red ? "red" : "";
        }
        if (ft.red) {
            if (b.hadSignal) show("i_boat_gps_warning", true);
        } else {
            show("i_boat_gps_warning", false);
            b.hadSignal = true;
        }
        if (g.fix === 0) {
            g.lonX = M.getLonX(b.theBoat.x);
            g.latY = M.getLatY(b.theBoat.y);
        }
    },

    /* The dashboard's position, heading, course, speed, depth and wind. */
    _showValues: function (g) {
        var b = kelvor.boat;
        var s = kelvor.settings;
        b.showDashVal("i_boat_lat", s.fmtLat(Number(g.latY)));
        b.showDashVal("i_boat_lon", s.fmtLon(Number(g.lonX)));
        b.showDashVal("i_boat_hdg", Number(g.hdg) !== 511 ? s.fmtBrg(Number(g.hdg)) : null);
        b.showDashVal("i_boat_cog", Number(g.cog) !== 360 ? s.fmtBrg(Number(g.cog)) : null);
        b.showDashVal("i_boat_sog", s.fmtSpeed(Number(g.sog) || 0));
        b.showDashVal("i_boat_dpt", g.dpt > 0 ? s.fmtDeep(Number(g.dpt)) : null);
        b.showDashVal("i_boat_wspd", g.wspd > 0 ? s.fmtSpeed(Number(g.wspd)) : null);
        b.showDashVal("i_boat_wdir", g.wdir > 0 ? s.fmtBrg(Number(g.wdir)) : null);
    },

    /* Steps to the next waypoint when due and shows the way to the active
    ** one, or dashes without one. Without a fix the boat's set speed counts. */
    _showProgress: function (g) {
        var b = kelvor.boat, setText = kelvor.aux.setText;
        var k = kelvor.settings.k, s = kelvor.settings;
        var ids = ["i_boat_brg", "i_boat_rng", "i_boat_ttg", "i_boat_dist", "i_boat_ete", "i_boat_eta"];
        if (b.activeWayPoint) b.checkNextWp();
        var wp = b.activeWayPoint;
        if (wp) {
            var spd = g.fix !== 0 ? Number(g.sog) : Number(k.V.i_settings_boat_speed);
            var pr = b.progress(b.theBoat, wp, spd, b.loctime);
            setText("i_boat_brg", s.fmtBrg(pr.brg));
            setText("i_boat_rng", s.fmtDist(pr.rng));
            setText("i_boat_ttg", s.fmtDuration(pr.ttg));
            setText("i_boat_dist", s.fmtDist(pr.dist));
            setText("i_boat_ete", s.fmtDuration(pr.ete));
            setText("i_boat_eta", b.fmtTime(pr.eta, b.step));
        } else {
            for (var i = 0; i < ids.length; i++) setText(ids[i], "---");
        }
    },

    /* In follow mode centres (and turns) the map on the boat; otherwise
    ** the map stays north up where it is. */
    _follow: function (g) {
        var b = kelvor.boat, RAD = kelvor.geo.RAD;
        var k = kelvor.settings.k, map = cpApp.map;
        if (b.autoUpdate) {
            var h = Number(g.hdg) !== 511 ? Number(g.hdg) : Number(g.cog);
            b.avghdg = h;
            var sr = (Math.min(map.getWidth(), map.getHeight()) - 100) * 0.4 / map.getScm();
            var c = b.followCenter(String(k.R.i_chart_follow_mode), b.theBoat.x, b.theBoat.y, h, b.activeBrg,
                !!b.activeWayPoint, sr);
            map.setCenter(c.x, c.y, true);
            if (c.rot !== null) map.rotation = c.rot * RAD;
            map.update(true);
        } else {
            b.avghdg = Number(g.cog);
            map.rotation = 0;
            cpApp.update();
        }
    },

    getGPS: function () { return kelvor.boat.gps; },
    /* One log row; the position is the last fix, or 999, 999 without one. */
    log: function (t, msg) {
        var b = kelvor.boat;
        var g = b.gps, x = 999, y = 999;
        if (g && g.fix && g.lonX !== null && isFinite(g.lonX) && isFinite(g.latY)) {
            x = Number(g.lonX);
            y = Number(g.latY);
        }
        postAsync("/UexecSql", null, "INSERT INTO log (ts,x,y,t,v) VALUES(" + new Date().gT() + "," + x + "," + y +
            "," + Number(t) + ",X'" + kelvor.aux.hexscape(msg) + "')");
    },

    /* ---- route steering ------------------------------------------------ */

    _showStop: function () { kelvor.aux.show("i_boat_stop_route", !!kelvor.boat.activeWayPoint); },
    activateRoute: function (r) {
        var b = kelvor.boat;
        var p = b.theBoat, best = 0, bd = Infinity;
        if (!r || !r.m.length) return;
        for (var i = 0; i < r.m.length; i++) {
            var d = r.m[i].dist(p);
            if (d < bd) {
                bd = d;
                best = i;
            }
        }
        if (best < r.m.length - 1 && r.m[best + 1].dist(p) < r.m[best + 1].dist(r.m[best])) best++;
        b.log(5, "Route activated: " + r.name);
        cpApp.unSelect();
        b.activeWayPoint = r.m[best];
        b._showStop();
    },

    setActiveWaypoint: function (wp) {
        var b = kelvor.boat;
        if (!wp) {
            b.activeWayPoint = false;
            b.activeBrg = 0;
        } else {
            b.log(5, "Route activated: " + (wp.route ? wp.route.name : wp.name));
            b.activeWayPoint = wp;
        }
        b._showStop();
    },

    /* Steps to the next waypoint once the boat has passed the active one
    ** abeam: the next is then nearer to the boat than to the active one. */
    checkNextWp: function () {
        var b = kelvor.boat;
        var wp = b.activeWayPoint, p = b.theBoat;
        if (!wp || !wp.route) return;
        var m = wp.route.m, i = m.indexOf(wp);
        if (i < 0) return;
        if (i < m.length - 1) {
            var nx = m[i + 1];
            if (nx.dist(p) < nx.dist(wp)) {
                b.activeWayPoint = nx;
                b.log(5, "Waypoint reached: " + nx.name);
                b.activeBrg = wp.brg(nx);
            }
        } else if (i > 0) {
            var pv = m[i - 1];
            if (pv.dist(p) > pv.dist(wp)) {
                b.log(5, "Destination reached: " + wp.name);
                b.activeWayPoint = false;
                b.activeBrg = 0;
                b._showStop();
            }
        }
    },

    waypointNext: function () {
        var b = kelvor.boat;
        var wp = b.activeWayPoint;
        if (!wp || !wp.route) return;
        var m = wp.route.m, i = m.indexOf(wp);
        if (i < 0 || i >= m.length - 1) return;
        b.activeWayPoint = m[i + 1];
        b.activeBrg = wp.brg(m[i + 1]);
        b.log(5, "Waypoint activated: " + m[i + 1].name);
    },

    stopRoute: function () {
        var b = kelvor.boat, show = kelvor.aux.show;
        var wp = b.activeWayPoint;
        show("i_boat_stop_route", false);
        if (!wp) return;
        b.activeWayPoint = false;
        b.activeBrg = 0;
        b.log(5, "Route aborted: " + (wp.route ? wp.route.name : wp.name));
    },

    /* ---- menu, follow and the chart ------------------------------------ */

    _ui: function () {
        var el = kelvor.aux.el;
        var bar = el("cp_boat_menu");
        if (!bar || el("i_boat_auto")) return;
        var btn = kelvor.aux.menuButton;
        bar.innerHTML += "<div class=\"menu_btn\" onclick=\"kelvor.boat.cruiseMode(2)\"><img id=\"i_boat_auto\" " +
            "class=\"img50\" src=\"img/auge_inactiv.png\" alt=\"\"><span>Follow</span></div>" +
            btn("btn_boat_chart", "icon-50-charts.png", "Chart", "kelvor.boat.showBestChart()") +
            btn("btn_boat_nearme", "icon-50-nearme.png", "Near Me", "kelvor.boat.nearMe()") +
            btn("btn_boat_mob", "icon-50-marker-sos.png", "MOB", "kelvor.marker.mob()") +
            btn("btn_boat_share", "icon-50-cloud.png", "Share", "kelvor.boat.share()") +
            btn("btn_boat_next_wp", "icon-50-waypoint.png", "Next", "kelvor.boat.waypointNext()") +
            btn("i_boat_stop_route", "dvstop.png", "Stop", "kelvor.boat.stopRoute()", 1) +
            "<select id=\"i_boat_follow\" onchange=\"kelvor.boat.setFollowMode(this.value)\">" +
            "<option value=\"1\">" + "North UP" + "</option><option value=\"2\">" + "Look Ahead" + "</option>" +
            "<option value=\"3\">" + "Heading UP" + "</option><option value=\"4\">" + "Follow Leg-Line" + "</option></select>";
        var d = el("cp_boat_dash");
        if (d) {
            var cells = [["i_boat_lat", "LAT"], ["i_boat_lon", "LON"], ["i_boat_sog", "SOG"], ["i_boat_cog", "COG"],
                ["i_boat_hdg", "HDG"], ["i_boat_rot", "ROT"], ["i_boat_dpt", "DPT"], ["i_boat_wspd", "Wind"],
                ["i_boat_wdir", "Wind dir"], ["i_boat_brg", "BRG"], ["i_boat_rng", "RNG"], ["i_boat_ttg", "TTG"],
                ["i_boat_dist", "DIST"], ["i_boat_ete", "ETE"], ["i_boat_eta", "ETA"]];
            var h = "";
            for (var i = 0; i < cells.length; i++) {
                h += "<div class=\"dash_cell\"><span class=\"dash_l\">" + cells[i][1] + "</span> <span id=\"" +
                    cells[i][0] + "\">---</span></div>";
            }
            d.innerHTML += h;
        }
    },

    setFollowMode: function (v) {
        var b = kelvor.boat;
        kelvor.settings.k.R.i_chart_follow_mode = String(v);
        kelvor.settings.saveOnly();
        b.cruiseMode(1);
    },

    cruiseMode: function (e) {
        var b = kelvor.boat, el = kelvor.aux.el;
        b.autoUpdate = e === 2 ? !b.autoUpdate : !!e;
        var img = el("i_boat_auto");
        if (img) img.src = b.autoUpdate ? "img/auge_activ.png" : "img/auge_inactiv.png";
        if (b.autoUpdate && b.gps && b.gps.lonX !== null) b.updateDash2(b.gps);
    },

    menu: function (noauto) {
        var b = kelvor.boat, el = kelvor.aux.el;
        b._ui();
        cpApp.showMenuBar("cp_boat_menu");
        cpApp.showDashBoard("cp_boat_dash");
        var sel = el("i_boat_follow");
        if (sel) sel.value = String(kelvor.settings.k.R.i_chart_follow_mode);
        if (!noauto) {
            cpApp.map.setCenter(b.theBoat.x, b.theBoat.y);
            b.cruiseMode(1);
        } else {
            b.cruiseMode(0);
        }
        b._showStop();
        kelvor.track.clearTrack();
    },

    showBestChart: function () { kelvor.chartkit.showBestChart(kelvor.boat.theBoat.x, kelvor.boat.theBoat.y); },
    /* Moves the stored boat position to the map centre; kept for a
    ** simulator that is not part of this build. */
    setSimSpeed: function (c) {
        var b = kelvor.boat, M = kelvor.marker;
        if (c !== -1) return;
        var p = cpApp.map.getPosWorldMerc(), k = kelvor.settings.k;
        k.boat.lonX = M.getLonX(p.x);
        k.boat.latY = M.getLatY(p.y);
        b.pause();
        b.start();
    },

    share: function () {
        var b = kelvor.boat, M = kelvor.marker;
        var k = kelvor.settings.k, name = k.V.i_settings_boat_name;
        M.shareObj(JSON.stringify({
            type: "b", pkt: { name: name, m: [b.theBoat] },
            title: "Position " + name + " " + new Date().toISOString().substring(0, 16).replace("T", " ")
        }), "Position share");
    },

    /* ---- near me ------------------------------------------------------- */

    /* Orders near entries: by q descending, then distance ascending. */
    sortNear: function (list) {
        return list.sort(function (a, c) { return (c.q - a.q) || (a.d - c.d); });
    },

    nearMe: function () {
        var b = kelvor.boat, M = kelvor.marker, setText = kelvor.aux.setText;
        var p = b.theBoat, list = [], R = 50000;
        try {
            var g = JSON.parse(getSync("/gazetteer/" + Math.round(p.x) + "/" + Math.round(p.y) + "/" + R) || "[]");
            if (Array.isArray(g)) list = list.concat(g);
            if (kelvor.ais.findByRange) list = list.concat(kelvor.ais.findByRange(p.x, p.y, R) || []);
            if (kelvor.chartkit.findByRange) list = list.concat(kelvor.chartkit.findByRange(p.x, p.y, R) || []);
        } catch (e) {
            console.log("nearMe: " + e);
        }
        var s = kelvor.settings, fc = kelvor.featurcodes || {};
        for (var i = 0; i < list.length; i++) {
            var q = new M(Number(list[i].x), Number(list[i].y));
            list[i].d = p.geoDist(q);
            list[i].brgText = s.fmtBrg(p.geoBrg(q));
            if (list[i].q === undefined) list[i].q = 1;
            if (!list[i].onUp) list[i].onUp = b._showPlace;
        }
        b.nearList = b.sortNear(list);
        var h = "<h2>" + "Near Me" + "</h2>";
        if (!list.length) {
            h += "<p>" + "nothing found" + "</p>";
        } else {
            h += "<table class=\"np_table\">";
            for (var j = 0; j < list.length; j++) {
                var e = list[j], cl = e.c !== undefined ? e.c : e.cl;
                if (cl !== undefined && fc[cl]) cl = fc[cl];
                h += "<tr onclick=\"kelvor.boat.goNearMe(" + j + ")\"><td>" + kelvor.aux.esc(e.n !== undefined ? e.n : e.name) +
                    "</td><td>" + s.fmtDist(e.d) + "</td><td>" + e.brgText + "</td><td>" + kelvor.aux.esc(cl) + "</td></tr>";
            }
            h += "</table>";
        }
        setText("np_table_list_content", h);
        cpApp.sizeDialog("np_table_list", 720);
    },

    /* A place of the gazetteer: its name over its class, in words. */
    _showPlace: function () {
        var fc = kelvor.featurcodes || {};
        kelvor.chartkit.showMrk.call({ n: this.n, txt: fc[this.c] || this.c });
    },

    /* The list closes before the entry opens, which may open a dialogue
    ** of its own. */
    goNearMe: function (i) {
        var b = kelvor.boat;
        var e = b.nearList[i];
        if (!e) return;
        kelvor.chartkit.showBestChart(Number(e.x), Number(e.y));
        cpApp.closeDlg();
        if (e.onUp) e.onUp();
    },

    /* ---- drawing ------------------------------------------------------- */

    find: function (so) {
        var b = kelvor.boat;
        var d = b.theBoat.dist(so.p);
        if (d < so.d) {
            so.d = d;
            so.o = b.theBoat;
        }
    },

    render: function (ctx) {
        var b = kelvor.boat, M = kelvor.marker, RAD = kelvor.geo.RAD;
        var g = b.gps, k = kelvor.settings.k;
        b.step++;
        if (!ctx.meterpixel) return;
        var x = b.theBoat.x * ctx.scm - ctx.cxzero, y = b.theBoat.y * ctx.scm - ctx.cyzero;
        var wp = b.activeWayPoint;
        if (wp) {
            ctx.save();
            ctx.lineWidth = 2;
            ctx.strokeStyle = b.step & 1 ? "black" : "#FF0000";
            ctx.beginPath();
            ctx.moveTo(x, y);
            ctx.lineTo(wp.x * ctx.scm - ctx.cxzero, wp.y * ctx.scm - ctx.cyzero);
            ctx.stroke();
            ctx.restore();
            var i = wp.route ? wp.route.m.indexOf(wp) : -1;
            if (i > 0) kelvor.route.renderXte(ctx, wp, wp.route.m[i - 1], wp);
        }
        if (g && g.aisuserid > 0) {
            kelvor.ais.aisuserid = g.aisuserid;
            return;
        }
        var cog = g && isFinite(g.cog) ? Number(g.cog) : 0;
        ctx.save();
        ctx.translate(x, y);
        ctx.rotate(cog * RAD + Math.PI);
        ctx.strokeStyle = "rgba(55,18,0,0.8)";
        ctx.fillStyle = "rgba(255,84,0,0.8)";
        ctx.beginPath();
        if (kelvor.settings.host && kelvor.settings.host.appname === "pilot") {
            ctx.lineWidth = 1;
            ctx.arc(0, 0, 3, 0, 2 * Math.PI);
            ctx.moveTo(0, 40);
            ctx.lineTo(10, 30);
            ctx.lineTo(10, -15);
            ctx.lineTo(-10, -15);
            ctx.lineTo(-10, 30);
            ctx.closePath();
        } else {
            ctx.lineWidth = 2;
            ctx.arc(0, 0, 2, 0, 2 * Math.PI);
            ctx.moveTo(0, 20);
            ctx.quadraticCurveTo(-7, 15, -12, -12);
            ctx.quadraticCurveTo(-12, -25, -6, -30);
            ctx.lineTo(6, -30);
            ctx.quadraticCurveTo(12, -25, 12, -12);
            ctx.quadraticCurveTo(7, 15, 0, 20);
        }
        ctx.fill();
        ctx.stroke();
        var len = (Number(g && g.sog) || 0) * Number(k.S.i_settings_track_predictor) / ctx.meterpixel;
        if (len > 0) {
            ctx.beginPath();
            ctx.moveTo(0, 0);
            ctx.lineTo(0, len);
            ctx.stroke();
        }
        ctx.restore();
        if (b.boatMove) {
            var img = M.getIcon("img/icon-50-marker-selected-move.png");
            if (img && img.complete && img.naturalWidth) ctx.drawImage(img, x - 25, y - 25);
        }
    }
};
