/*
** kelvor.boat.js: the own boat and the status exchange.
**
** This first form runs the status timer: once a second, unless the map is
** busy, it posts to /getSetHostStat/ and keeps the reply as `gps`, feeding
** the rolling track. The boat symbol, the dashboards, follow mode and
** waypoint stepping come with the own boat issue.
*/

kelvor.boat = {
    theBoat: { x: 0, y: 0, noauto: true },
    gps: { lonX: null, latY: null, loctime: new Date().gT() },
    loctime: 0,
    activeWayPoint: false,
    activeBrg: 0,
    autoUpdate: false,
    paused: false,
    hadSignal: false,
    boatMove: false,
    step: 0,
    _timer: null,
    ticks: 0,

    start: function () {
        var b = kelvor.boat, k = kelvor.settings.k, B = MERC_SPHERE_BASE;
        kelvor.track.clearTrack();
        b.theBoat.x = (Number(k.boat.lonX) + 180) / 360 * B;
        b.theBoat.y = cpApp.map._lat2y(Number(k.boat.latY), B);
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
        var b = kelvor.boat, k = kelvor.settings.k;
        if (cpApp.map.busy() && !b.boatMove) return;
        b.ticks++;
        var url = "/getSetHostStat/" + k.S.i_settings_track_interval + "/" + k.S.i_settings_track_distance + "/" +
            (k.C.i_track_on ? 1 : 0) + "/" + kelvor.track.lastTrackTimeStamp;
        postAsync(url, b.updateDash, "*");
    },

    updateDash: function (text) {
        if (text === false) return;
        var g;
        try {
            g = JSON.parse(text);
        } catch (e) {
            window.alert(text + "\n" + e.stack);
            return;
        }
        kelvor.boat.updateDash2(g);
    },

    updateDash2: function (g) {
        var b = kelvor.boat;
        b.loctime = new Date().gT();
        g.loctime = b.loctime;
        b.gps = g;
        if (Math.abs(g.latY) <= 80 && Math.abs(g.lonX) <= 180 && g.fix !== 0) {
            b.hadSignal = true;
            b.theBoat.x = (Number(g.lonX) + 180) / 360 * MERC_SPHERE_BASE;
            b.theBoat.y = cpApp.map._lat2y(Number(g.latY), MERC_SPHERE_BASE);
        }
        kelvor.track.updateTrack(g.track);
        if (g.nmea_stat === 1 && g.ais) kelvor.ais.update(g.ais);
    },

    /* One log row; the position is the last fix, or 999, 999 without one. */
    log: function (t, msg) {
        var g = kelvor.boat.gps;
        var x = 999, y = 999;
        if (g && g.fix && g.lonX !== null) {
            x = g.lonX;
            y = g.latY;
        }
        postAsync("/UexecSql", null, "INSERT INTO log (ts,x,y,t,v) VALUES(" + new Date().gT() + "," + x + "," + y +
            "," + Number(t) + ",X'" + kelvor.aux.hexscape(msg) + "')");
    },

    menu: function () {},
    render: function (ctx) {},
    find: function (so) {}
};
