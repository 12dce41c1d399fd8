/*
** kelvor.navrte.js: a chart kit's fairway line and closest point of approach.
**
** A fairway is a polyline in whole world metres. When both the own boat and
** a target lie on it (abeam of a segment, within maxDist of the line), the
** meeting is worked out along the line: two ships following a winding
** channel meet where their distances along it match, not where their
** straight courses cross. Off the fairway, or with an empty one, the
** straight-line CPA of two constant velocities is used.
**
** All lengths returned are true metres at the boat's latitude: plane
** lengths of the Mercator grid times refLat (the cosine of that latitude).
*/

/* A fairway from a flat lon, lat list. The empty fairway (no list) has no
** segments and so gives straight-line CPA only. */
kelvor.navrte = function (name, lonlat, id) {
    var G = kelvor.geo;
    this.id = id || 0;
    this.name = name || "";
    this.x = [];
    this.y = [];
    lonlat = lonlat || [];
    for (var i = 0; i + 1 < lonlat.length; i += 2) {
        var lon = Number(lonlat[i]), lat = Number(lonlat[i + 1]);
        this.x.push(Math.round(G.lon2x(lon)));
        this.y.push(Math.round(G.lat2y(lat)));
    }
    this.xBoat = 0;
    this.yBoat = 0;
    this.sog = 0;
    this.cog = 0;
    this.refLat = 1;
    this.maxDist = 0;
    this.b = false;
};

/* Above this many seconds ahead a meeting shows no CPA text. */
kelvor.navrte.TCPA_MAX = 4200;

/*
** Line measure of point p against the line a-b. Returns
**   ab  length of a-b times refLat (true metres),
**   lr  signed offset of p as a fraction of the length (right of a->b > 0),
**   fb  position along the line, 0 at a and 1 at b,
**   dir 1 when the course vector (vx, vy) = (sin cog, cos cog) goes with
**       the line, else -1.
** A zero-length line gives lr and fb 0 rather than dividing by zero.
*/
kelvor.navrte.linedist = function (ax, ay, bx, by, px, py, vx, vy, refLat) {
    var dx = bx - ax, dy = by - ay;
    var l2 = dx * dx + dy * dy;
    var cr = (px - ax) * dy - (py - ay) * dx;
    var dt = (px - ax) * dx + (py - ay) * dy;
    return {
        ab: Math.sqrt(l2) * (refLat === undefined ? 1 : refLat),
        lr: l2 > 0 ? cr / l2 : 0,
        fb: l2 > 0 ? dt / l2 : 0,
        dir: dx * (vx || 0) - dy * (vy || 0) > 0 ? 1 : -1
    };
};

kelvor.navrte.prototype = {

    /* Stores the own boat and finds its place on the fairway (b, or false). */
    setBoat: function (x, y, sog, cog, maxDist, refLat) {
        this.xBoat = x;
        this.yBoat = y;
        this.sog = Number(sog) || 0;
        this.cog = Number(cog) || 0;
        this.maxDist = Number(maxDist) || 0;
        this.refLat = refLat > 0 ? refLat : 1;
        this.b = this.run(x, y, this.cog);
    },

    /*
    ** Place of a ship on the fairway: the first segment the point is abeam
    ** of and within maxDist of. Returns the measure of that segment plus
    ** run (true metres from the start of the line) and point (segment
    ** index), or false when no segment qualifies.
    */
    run: function (x, y, cog) {
        var r = cog * kelvor.geo.RAD, vx = Math.sin(r), vy = Math.cos(r);
        var along = 0;
        for (var i = 0; i + 1 < this.x.length; i++) {
            var d = kelvor.navrte.linedist(this.x[i], this.y[i], this.x[i + 1], this.y[i + 1], x, y, vx, vy, this.refLat);
            if (d.fb >= 0 && d.fb <= 1 && Math.abs(d.lr * d.ab) < this.maxDist) {
                d.run = along + d.fb * d.ab;
                d.point = i;
                return d;
            }
            along += d.ab;
        }
        return false;
    },

    /* Point and unit direction at a run length (true metres), or false
    ** beyond either end. */
    getXY: function (run) {
        var rest = run / this.refLat;
        if (rest < 0) return false;
        for (var i = 0; i + 1 < this.x.length; i++) {
            var dx = this.x[i + 1] - this.x[i], dy = this.y[i + 1] - this.y[i];
            var l = Math.sqrt(dx * dx + dy * dy);
            if (rest <= l && l > 0) {
                return { x: this.x[i] + dx * rest / l, y: this.y[i] + dy * rest / l, dx: dx / l, dy: dy / l };
            }
            rest -= l;
        }
        return false;
    },

    /*
    ** Straight-line CPA of a target at (x, y) with speed (m/s) and course
    ** (degrees) against the stored boat. Positions become true metres
    ** around the midpoint c of the two ships. Returns false for equal
    ** velocities or ships that are opening; else { cpa, tcpa, dir, X, Y, c }
    ** with X, Y the own ship's place at tcpa as true metres from c. dir is
    ** "+" when the target passes the own ship's bow before it reaches the
    ** meeting (to starboard at the closest point), "-" otherwise.
    */
    cpaCalc: function (x, y, speed, course) {
        var f = this.refLat;
        var cx = (this.xBoat + x) / 2, cy = (this.yBoat + y) / 2;
        var a = (this.xBoat - cx) * f, b = (this.yBoat - cy) * f;
        var tx = (x - cx) * f, ty = (y - cy) * f;
        var rb = this.cog * kelvor.geo.RAD, rt = course * kelvor.geo.RAD;
        var va = Math.sin(rb) * this.sog, vb = -Math.cos(rb) * this.sog;
        var vx = Math.sin(rt) * speed, vy = -Math.cos(rt) * speed;
        var dom = (vx - va) * (vx - va) + (vy - vb) * (vy - vb);
        if (dom === 0) return false;
        var t = -((tx - a) * (vx - va) + (ty - b) * (vy - vb)) / dom;
        var d = this.cpaCalc2(a, b, va, vb, tx, ty, vx, vy, t);
        var e = this.cpaCalc2(a, b, va, vb, tx, ty, vx, vy, -t);
        if (e < d) {
            t = -t;
            d = e;
        }
        if (t < 0) return false;
        var ox = a + va * t, oy = b + vb * t;
        var side = va * ((ty + vy * t) - oy) - vb * ((tx + vx * t) - ox);
        return {
            cpa: Math.round(d), tcpa: Math.round(t), dir: side >= 0 ? "+" : "-",
            X: Math.round(ox), Y: Math.round(oy), c: { x: cx, y: cy }
        };
    },

    /* Distance of the two ships after t seconds. */
    cpaCalc2: function (a, b, va, vb, x, y, vx, vy, t) {
        var dx = (x + vx * t) - (a + va * t), dy = (y + vy * t) - (b + vb * t);
        return Math.sqrt(dx * dx + dy * dy);
    },

    /*
    ** CPA of a target against the boat: along the fairway when both are on
    ** it, else straight-line. Returns the result record with CPA, the
    ** display text, or false when the meeting is past, absent or more than
    ** TCPA_MAX seconds away.
    */
    cpa: function (x, y, sog, cog) {
        var s = kelvor.settings, res = false;
        var r = this.run(x, y, cog);
        if (!r || !this.b) {
            res = this.cpaCalc(x, y, sog, cog);
            if (res) res.cdir = res.dir === "-" ? "-" : "";
        } else {
            var b = this.b;
            var spd = this.sog * b.dir - sog * r.dir;
            if (Math.abs(spd) < 0.01) return { CPA: false };
            var dist = r.run - b.run;
            var tcpa = dist / spd;
            if (tcpa > 0) {
                var tpos = r.run + r.dir * sog * tcpa;
                var lo = Math.min(r.run, b.run), hi = Math.max(r.run, b.run);
                res = {
                    cpa: Math.abs(b.lr * b.ab - r.lr * r.ab), tcpa: tcpa,
                    cdir: tpos >= lo && tpos <= hi ? " " : "-",
                    run: r.run, dir: r.dir, sog: sog, point: r.point
                };
            } else {
                res = { tcpa: tcpa };
            }
        }
        if (!res || !(res.tcpa >= 0) || res.tcpa > kelvor.navrte.TCPA_MAX || res.cpa === undefined) {
            return { CPA: false };
        }
        res.CPA = res.cdir + s.fmtDist(res.cpa) + "&nbsp;/&nbsp;" + s.fmtDuration(res.tcpa);
        return res;
    }
};
