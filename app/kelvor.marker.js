/*
** kelvor.marker.js: the base of every point on the map, and the user's
** marker list.
**
** `new kelvor.marker(x, y)` is a plain point in world metres with the
** geometry below. Given an icon it becomes a map point: it gets a name, a
** display scale, type 5 and joins `kelvor.marker.markerList`, which so
** holds every waypoint, ruler end and alarm point too; `type` tells them
** apart (5 user marker, 3 route or ruler point, 7 alarm point). The module
** draws and hit-tests that whole list, and keeps the user's markers (type 5)
** under the key "marker" of the trip database.
*/

kelvor.marker = function (x, y, icon) {
    this.x = x;
    this.y = y;
    if (icon) {
        this.name = "New Marker";
        this.s = 100000000;
        this.type = 5;
        this.i = icon;
        this.src = icon;
        kelvor.marker.markerList.push(this);
    }
};

kelvor.marker.markerList = [];
kelvor.marker.markerListIcon = {};
kelvor.marker.activeMarker = false;
kelvor.marker.modified = false;

/* Conversions between degrees and world metres. */
kelvor.marker.getXpos = function (lon) { return kelvor.geo.lon2x(Number(lon)); };
kelvor.marker.getYpos = function (lat) { return kelvor.geo.lat2y(Number(lat)); };
kelvor.marker.getLonX = function (x) { return kelvor.geo.x2lon(x); };
kelvor.marker.getLatY = function (y) { return kelvor.geo.y2lat(y); };

/* Line measure of point p against the line a to b: `ab` the length,
** `lr` the signed offset as a fraction of the length, `fb` the position
** along it (0 at a, 1 at b). A line of no length gives zeros. */
kelvor.marker.linedist = function (ax, ay, bx, by, px, py) {
    var dx = bx - ax, dy = by - ay, l2 = dx * dx + dy * dy;
    if (!(l2 > 0)) return { ab: 0, lr: 0, fb: 0 };
    return {
        ab: Math.sqrt(l2),
        lr: ((px - ax) * dy - (py - ay) * dx) / l2,
        fb: ((px - ax) * dx + (py - ay) * dy) / l2
    };
};

/* The shared image of a source, made on first use. */
kelvor.marker.getIcon = function (src) {
    var M = kelvor.marker;
    var l = M.markerListIcon;
    if (!l[src] && typeof Image !== "undefined") {
        var img = new Image();
        img.onload = function () { if (cpApp && cpApp.map) cpApp.map.update(false); };
        img.src = src;
        l[src] = img;
    }
    return l[src] || null;
};

kelvor.marker.prototype = {
    dist: function (p) {
        var dx = this.x - p.x, dy = this.y - p.y;
        return Math.sqrt(dx * dx + dy * dy);
    },
    /* Rhumb bearing on the plane: north 0, east 90, range -180 to 180. */
    brg: function (p) { return Math.atan2(p.x - this.x, this.y - p.y) / kelvor.geo.RAD; },
    lon: function () { return kelvor.marker.getLonX(this.x); },
    lat: function () { return kelvor.marker.getLatY(this.y); },
    /* Great circle distance in metres. */
    geoDist: function (p) {
        var M = kelvor.marker, G = kelvor.geo;
        return G.dist(M.getLatY(this.y), M.getLonX(this.x), M.getLatY(p.y), M.getLonX(p.x));
    },
    /* Bearing from the degree differences, with no cosine correction. */
    geoBrg: function (p) {
        var M = kelvor.marker, RAD = kelvor.geo.RAD;
        var dlon = M.getLonX(p.x) - M.getLonX(this.x), dlat = M.getLatY(p.y) - M.getLatY(this.y);
        return Math.atan2(dlon, dlat) / RAD;
    },
    add: function (p) { return new kelvor.marker(this.x + p.x, this.y + p.y); },
    sub: function (p) { return new kelvor.marker(this.x - p.x, this.y - p.y); },
    mul: function (f) { return new kelvor.marker(this.x * f, this.y * f); },
    center: function (p) { return new kelvor.marker((this.x + p.x) / 2, (this.y + p.y) / 2); },
    /* A step of dist plane metres from this point toward p. */
    move: function (p, dist) {
        var M = kelvor.marker;
        var d = this.dist(p);
        if (!(d > 0)) return new M(this.x, this.y);
        return new M(this.x + (p.x - this.x) * dist / d, this.y + (p.y - this.y) * dist / d);
    },

    /* The stored form. A point with a per-leg limit is renamed "XTE" in
    ** memory once its name has been copied: that is how the stored lists
    ** have always behaved, and older files depend on it. */
    toJSON: function () {
        var o = { name: this.name, x: Math.round(this.x), y: Math.round(this.y) };
        if (this.xte) {
            o.xte = this.xte;
            this.name = "XTE";
        }
        if (this.type === 5) {
            var u = this.ico && this.ico.src ? this.ico.src : String(this.src || "");
            var at = u.indexOf("/app/");
            o.icon = at >= 0 ? u.substring(at) : "/app/" + u;
        }
        if (this.noauto) o.noauto = true;
        if (this.note) o.note = this.note;
        return o;
    }
};

kelvor.marker.fmtPos = function (p) {
    var M = kelvor.marker;
    var s = kelvor.settings;
    return s.fmtLat(M.getLatY(p.y)) + " " + s.fmtLon(M.getLonX(p.x));
};

/* The bar's buttons: id, icon, label, call, and 1 where the button
** starts hidden. */
kelvor.marker._BAR = [
    ["btn_marker_add", "icon-50-marker.png", "New", "kelvor.marker.add()"],
    ["btn_marker_unlock", "icon-50-marker-selected-move.png", "Unlock", "kelvor.marker.unlock()", 1],
    ["btn_marker_lock", "icon-50-marker.png", "Lock", "kelvor.marker.lock()", 1],
    ["btn_marker_note", "icon-50-log.png", "Note", "kelvor.marker.note()", 1],
    ["btn_marker_activate", "icon-50-route.png", "Goto", "kelvor.marker.activate()", 1],
    ["btn_marker_share", "icon-50-cloud.png", "Share", "kelvor.marker.share()", 1],
    ["btn_marker_del", "icon-50-tool.png", "Delete", "kelvor.marker.del()", 1]
];

/* The bar and the dashboard, built once into the page's empty frames. */
kelvor.marker._ui = function () {
    var M = kelvor.marker, aux = kelvor.aux;
    if (!aux.menuBar("cp_marker_menu", M._BAR)) return;
    aux.setText("cp_marker_dash", "<select id=\"i_marker_list\" onchange=\"kelvor.marker.showMarker(this.value)\">" +
        "</select><input type=\"text\" id=\"i_marker_name\" onchange=\"kelvor.marker.rename(this.value)\">" +
        "<div><span id=\"i_marker_pos\" onclick=\"kelvor.marker.editman(this, 1)\"></span></div><div><span " +
        "id=\"i_marker_dist\"></span> <span id=\"i_marker_brg\"></span></div><div id=\"i_marker_location\">" +
        "</div><div id=\"i_marker_note\"></div>");
};

/* ---- handlers of a user marker ------------------------------------ */

kelvor.marker._mDown = function () {
    var M = kelvor.marker;
    var m = this;
    cpApp.unSelect();
    M.activeMarker = m;
    m.selected = M.getIcon("img/icon-50-marker-selected-move.png");
    M.menu();
};
kelvor.marker._mMove = function (ctx, dx, dy) {
    var M = kelvor.marker;
    if (this.locked) return;
    this.x += dx;
    this.y += dy;
    M.modified = true;
    if (cpApp && cpApp.map) cpApp.map.paintByTimer();
};
kelvor.marker._mUp = function () {
    var M = kelvor.marker;
    if (this.locked) return;
    if (!this.noauto) this.name = kelvor.chartkit.gazetteer(this.x, this.y);
    this.txt = this.name;
    kelvor.aux.changed(M);
    M.showActiveMarker();
};
kelvor.marker.attach = function (m) {
    var M = kelvor.marker;
    m.onDown = M._mDown;
    m.onMove = M._mMove;
    m.onUp = M._mUp;
    m.txt = m.name;
    return m;
};

/* ---- the list ------------------------------------------------------ */

kelvor.marker.add = function () {
    var M = kelvor.marker;
    cpApp.unSelect();
    var c = cpApp.map.getPosWorldMerc();
    var m = M.attach(new M(c.x, c.y, "img/icon-50-marker.png"));
    m.locked = false;
    M.activeMarker = m;
    cpApp.helpBubbleShow("help_bubble_center", "help-marker.txt");
    kelvor.aux.edited(M);
    return m;
};

/* Takes a point out of the shared list (any type). */
kelvor.marker.remove = function (m) {
    var M = kelvor.marker;
    var l = M.markerList, i = l.indexOf(m);
    if (i >= 0) l.splice(i, 1);
    if (M.activeMarker === m) M.activeMarker = false;
};

kelvor.marker.del = function (ok) {
    var M = kelvor.marker;
    var m = M.activeMarker;
    if (!m || m.locked || !kelvor.aux.askFirst(ok, "Delete Marker ?", "kelvor.marker.del(true)")) return;
    if (kelvor.boat.activeWayPoint === m) kelvor.boat.setActiveWaypoint(false);
    M.remove(m);
    kelvor.aux.edited(M);
};

kelvor.marker.lock = function () { if (kelvor.marker.activeMarker) kelvor.marker.activeMarker.locked = true; kelvor.marker.menu(); };
kelvor.marker.unlock = function () { if (kelvor.marker.activeMarker) kelvor.marker.activeMarker.locked = false; kelvor.marker.menu(); };

/* A name typed by the user: kept from now on when the marker moves. */
kelvor.marker.rename = function (t) {
    var M = kelvor.marker;
    var m = M.activeMarker;
    kelvor.aux.rename(M, m, t);
    if (!m) return;
    m.txt = m.name;
    cpApp.update();
};

kelvor.marker.note = function () {
    var M = kelvor.marker;
    var m = M.activeMarker;
    if (!m) return;
    kelvor.marker.noteDialog(m.note || "", "kelvor.marker.noteChange()");
};

/* The note dialog of every owner: a text area and a save button that
** runs action. */
kelvor.marker.noteDialog = function (text, action) {
    var el = kelvor.aux.el;
    var f = el("np_nob_comment");
    if (!f) return;
    f.children[0].innerHTML = "<h2>Note</h2><textarea id=\"i_nob_comment\" rows=\"6\" style=\"width:100%\">" +
        kelvor.aux.esc(text) + "</textarea><div class=\"btn_row\"><button type=\"button\" id=\"btn_nob_save\" onclick=\"" +
        action + "\">Save</button></div>";
    cpApp.sizeDialog(f);
};

/* The note dialog's save for o, an item of mod or one of its points:
** the text becomes o's note and mod's list counts as changed (nothing
** when o or the dialog is gone). The dialog closes either way. */
kelvor.marker.noteTake = function (mod, o) {
    var t = kelvor.aux.el("i_nob_comment");
    if (o && t) {
        o.note = t.value;
        kelvor.aux.changed(mod);
    }
    cpApp.closeDlg();
};

kelvor.marker.noteChange = function () {
    var M = kelvor.marker;
    M.noteTake(M, M.activeMarker);
    M.showActiveMarker();
};

/* Steering to the marker: a route of two points, boat to marker. */
kelvor.marker.activate = function () {
    var M = kelvor.marker;
    var m = M.activeMarker, b = kelvor.boat.theBoat;
    if (!m) return;
    var r = kelvor.route.addNew(b.x, b.y, m.x, m.y);
    r.m[0].name = "Boat position";
    r.m[1].name = m.name;
    r.m[0].noauto = true;
    r.m[1].noauto = true;
    r.m[0].txt = r.m[0].name;
    r.m[1].txt = r.m[1].name;
    r.name = "Goto ";
    r.locked = true;
    kelvor.aux.changed(kelvor.route);
    cpApp.unSelect();
    kelvor.boat.setActiveWaypoint(r.m[1]);
    kelvor.boat.menu();
};

/* Hands a share record to the cloud, then its answer to the host,
** which passes it to the desktop. Without the cloud the internet error
** dialog opens. */
kelvor.marker.shareObj = function (text, title) {
    if (cpApp.shareObj) return cpApp.shareObj(text, title);
    postAsync(AJAXSERVER + "?makeShare=" + encodeURIComponent(kelvor.settings.k.userid), function (r) {
        if (r === false) {
            cpApp.ineterror();
            return;
        }
        postAsync("/postShare/" + encodeURIComponent(title), null, r);
    }, text, APPURLENC);
};

/* Shares pkt, a share record of type ("m" markers, "r" a route or a
** ruler), as "<what> for: <boat name>". */
kelvor.marker.shareAs = function (type, pkt, what) {
    kelvor.marker.shareObj(JSON.stringify({
        type: type, pkt: pkt,
        title: what + " for: " + kelvor.settings.k.V.i_settings_boat_name
    }), what + " share");
};

kelvor.marker.share = function () {
    var m = kelvor.marker.activeMarker;
    if (m) kelvor.marker.shareAs("m", { m: [m] }, "Marker");
};

/* A locked point to steer back to, at position p. */
kelvor.marker._emergency = function (p, name) {
    var M = kelvor.marker;
    var m = M.attach(new M(p.x, p.y, "img/icon-50-marker-sos.png"));
    m.name = name;
    m.txt = name;
    m.locked = true;
    m.noauto = true;
    m.s = 10000;
    kelvor.aux.changed(M);
    kelvor.boat.log(4, name);
    cpApp.unSelect();
    kelvor.boat.setActiveWaypoint(m);
    kelvor.boat.menu();
    return m;
};
kelvor.marker.mob = function () {
    var M = kelvor.marker;
    var b = kelvor.boat.theBoat;
    return M._emergency({ x: b.x, y: b.y }, "Man over Board");
};

/* e: an AIS target, X, Y its place in world metres, user its MMSI. */
kelvor.marker.sart = function (e) {
    var M = kelvor.marker;
    return M._emergency({ x: Number(e.X), y: Number(e.Y) }, "AIS SART " + e.user);
};

kelvor.marker.userMarkers = function () {
    var M = kelvor.marker;
    var out = [];
    for (var i = 0; i < M.markerList.length; i++) if (M.markerList[i].type === 5) out.push(M.markerList[i]);
    return out;
};

kelvor.marker.showMarker = function (id) {
    var M = kelvor.marker;
    var m = M.userMarkers()[Number(id)];
    if (!m) return;
    cpApp.unSelect();
    M.activeMarker = m;
    cpApp.map.setCenter(m.x, m.y);
    M.menu();
};

kelvor.marker.showActiveMarker = function () {
    var M = kelvor.marker, el = kelvor.aux.el, setText = kelvor.aux.setText;
    var m = M.activeMarker, s = kelvor.settings;
    if (!m || m.type !== 5) return;
    var b = kelvor.boat.theBoat;
    var n = el("i_marker_name");
    if (n) n.value = m.name;
    setText("i_marker_pos", M.fmtPos(m));
    setText("i_marker_dist", s.fmtDist(m.geoDist(b)));
    setText("i_marker_brg", s.fmtBrg(b.brg(m)));
    setText("i_marker_location", kelvor.aux.esc(kelvor.chartkit.gazetteer(m.x, m.y)));
    setText("i_marker_note", kelvor.aux.esc(m.note || ""));
};

kelvor.marker.menu = function () {
    var M = kelvor.marker, show = kelvor.aux.show;
    M._ui();
    var m = M.activeMarker && M.activeMarker.type === 5 ? M.activeMarker : false;
    cpApp.showMenuBar("cp_marker_menu");
    cpApp.showDashBoard("cp_marker_dash");
    show("btn_marker_unlock", m && m.locked);
    show("btn_marker_lock", m && !m.locked);
    show("btn_marker_note", !!m);
    show("btn_marker_activate", !!m);
    show("btn_marker_share", !!m);
    show("btn_marker_del", m && !m.locked);
    kelvor.aux.fillList("i_marker_list", M.userMarkers(), m, "Select Marker");
    M.showActiveMarker();
};

/* ---- coordinates typed by hand ------------------------------------- */

kelvor.marker._editTarget = 0;
/* Opens the coordinate dialog for the active point; t names the owner
** to mark modified: 1 marker, 2 route, 3 ruler, 5 alarm. */
kelvor.marker.editman = function (e, t) {
    var M = kelvor.marker, el = kelvor.aux.el;
    var m = M.activeMarker, f = el("np_edit_coord");
    if (!m || !f) return;
    M._editTarget = t;
    var s = kelvor.settings;
    f.children[0].innerHTML = "<h2>Position</h2><table class=\"np_table\">" +
        "<tr><td>Latitude</td><td><input type=\"text\" id=\"i_edit_coord_y\" value=\"" +
        kelvor.aux.esc(s.fmtLat(m.lat())) + "\"></td></tr><tr><td>Longitude</td><td><input type=\"text\" " +
        "id=\"i_edit_coord_x\" value=\"" + kelvor.aux.esc(s.fmtLon(m.lon())) + "\"></td></tr></table>" +
        "<p>123\u00b059'59.99\", 123\u00b059.999' or 123.9999</p><div class=\"btn_row\">" +
        "<button type=\"button\" id=\"btn_edit_coord_save\" onclick=\"kelvor.marker.editmansave()\">Save</button></div>";
    cpApp.sizeDialog(f);
};

kelvor.marker.COORD = /^(-?\d+(?:\.\d*)?)°?(?:(\d+(?:\.\d*)?)')?(?:(\d+(?:\.\d*)?)")?([NSOWE])?$/;
/* One coordinate text to degrees, or NaN. The first blank goes, the
** first comma becomes a point. */
kelvor.marker.parseCoord = function (text) {
    var M = kelvor.marker;
    var t = String(text).replace(" ", "").replace(",", ".").replace(/\s+$/, "");
    var r = M.COORD.exec(t);
    if (!r) return NaN;
    var v = parseFloat(r[1]);
    var neg = v < 0 || r[1].charAt(0) === "-";
    v = Math.abs(v);
    if (r[2]) v += parseFloat(r[2]) / 60;
    if (r[3]) v += parseFloat(r[3]) / 3600;
    if (r[4] === "S" || r[4] === "W") neg = !neg;
    return neg ? -v : v;
};

/* Reads the dialog's inputs; ids ending in "_y" are latitude. A value
** that does not parse or is out of range leaves that axis as it is. */
kelvor.marker.editmansave = function () {
    var M = kelvor.marker, el = kelvor.aux.el;
    var m = M.activeMarker;
    if (!m) return false;
    var ids = ["i_edit_coord_y", "i_edit_coord_x"];
    for (var i = 0; i < ids.length; i++) {
        var e = el(ids[i]);
        if (!e) continue;
        var v = M.parseCoord(e.value);
        if (!isFinite(v)) continue;
        if (/_y$/.test(ids[i])) {
            if (Math.abs(v) < 85) m.y = M.getYpos(v);
        } else if (Math.abs(v) <= 180) {
            m.x = M.getXpos(v);
        }
    }
    var owner = [null, M, kelvor.route, kelvor.ruler, null, kelvor.alarm][M._editTarget];
    if (owner) owner.modified = true;
    cpApp.setModified();
    cpApp.closeDlg();
    cpApp.update();
    return true;
};

/* ---- storage ------------------------------------------------------- */

/* Builds markers from the stored list; an empty or broken value leaves
** the list as it is. Everything loads locked. */
/* What a stored point o carries besides its place goes onto point m:
** its name ("" when it has none), per-leg limit, typed-name flag and
** note. */
kelvor.marker.restore = function (m, o) {
    m.name = o.name === undefined ? "" : String(o.name);
    if (o.xte) m.xte = Number(o.xte);
    if (o.noauto) m.noauto = true;
    if (o.note) m.note = String(o.note);
};

kelvor.marker.load = function (text) {
    var M = kelvor.marker;
    var l = kelvor.aux.parseList(text);
    for (var i = 0; i < l.length; i++) {
        var o = l[i];
        if (!o || !isFinite(o.x) || !isFinite(o.y)) continue;
        var ic = typeof o.icon === "string" && o.icon ? o.icon.replace(/^\/app\//, "") : "img/icon-50-marker.png";
        var m = M.attach(new M(Number(o.x), Number(o.y), ic));
        M.restore(m, o);
        m.txt = m.name;
        m.locked = true;
    }
};

kelvor.marker.save = function () { kelvor.aux.saveList(kelvor.marker, "marker", kelvor.marker.userMarkers()); };

kelvor.marker.unSelect = function () {
    var M = kelvor.marker;
    var m = M.activeMarker;
    if (m) m.selected = null;
    M.activeMarker = false;
};

/* Hit test over every point: the nearest within the tolerance wins.
** Points of hidden routes and points below their scale are not hit. */
kelvor.marker.find = function (so) {
    var M = kelvor.marker;
    var l = M.markerList;
    for (var i = 0; i < l.length; i++) {
        var m = l[i];
        if (!m.onDown && !m.onUp) continue;
        if (m.route && !m.route.visible && kelvor.route.activeRoute !== m.route) continue;
        if (m.s && so.mapScale && !(m.s > so.mapScale)) continue;
        var d = m.dist(so.p);
        if (d < so.d) {
            so.d = d;
            so.o = m;
        }
    }
};

kelvor.marker.render = function (ctx) { kelvor.marker.renderList(kelvor.marker.markerList, ctx); };

/* Draws a list of points: icon centred, label below, note at close
** scales. */
kelvor.marker.renderList = function (list, ctx) {
    var M = kelvor.marker;
    var f = ctx.scm;
    ctx.save();
    kelvor.aux.labelStyle(ctx);
    for (var i = 0; i < list.length; i++) {
        var m = list[i];
        var px = m.x * f, py = m.y * f;
        if (px < ctx.sx1 - 50 || px > ctx.sx2 + 50 || py < ctx.sy1 - 50 || py > ctx.sy2 + 50) continue;
        if (m.s !== undefined && !(m.s > ctx.mapScale)) continue;
        if (m.route && !m.route.visible && kelvor.route.activeRoute !== m.route) continue;
        var x = Math.round(px - ctx.cxzero), y = Math.round(py - ctx.cyzero);
        if (m.mrender) {
            m.mrender(ctx, x, y);
            continue;
        }
        if (m.i) {
            m.ico = M.getIcon(m.i);
            m.i = null;
        }
        var img = m.selected || m.ico, h = 0;
        if (img && img.complete && img.naturalWidth) {
            h = img.naturalHeight;
            ctx.drawImage(img, x - img.naturalWidth / 2, y - h / 2);
        }
        if (m.txt) {
            ctx.strokeText(m.txt, x, y + h / 2 + 10);
            ctx.fillText(m.txt, x, y + h / 2 + 10);
        }
        if (m.note && ctx.mapScale < 100000) {
            ctx.strokeText(m.note, x, y + h / 2 + 5);
            ctx.fillText(m.note, x, y + h / 2 + 5);
        }
    }
    ctx.restore();
};

/* cpApp.unSelect asks each module for `active`. */
Object.defineProperty(kelvor.marker, "active", { get: function () { return kelvor.marker.activeMarker; } });
