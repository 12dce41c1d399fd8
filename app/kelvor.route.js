/*
** kelvor.route.js: the user's routes.
**
** A route is an ordered list of waypoints (map points of type 3 in the
** shared marker list) with a colour and, on each waypoint, an optional
** cross-track limit for the leg that ends there. This file holds the route
** object, its creation, the three-zone hit test of its legs, dragging and
** inserting waypoints, the bar and dashboards, drawing (legs, arrows, the
** selection band, the leg ruler and the XTE band with its handle) and the
** stored list under the key "route". The waypoint handlers here serve the
** rulers' end points as well.
*/

kelvor.route = function (name) {
    this.name = name || "***";
    this.m = [];
    this.color = "#0000ff";
    this.locked = true;
    this.noauto = false;
    this.xte = false;
    this.visible = true;
    this.note = "";
    this.medit = null;
    this.p = null;
    this.pe = 0;
    this.length = 0;
};

kelvor.routeList = [];

kelvor.route.activeRoute = false;
kelvor.route.modified = false;
kelvor.route.xteHandle = null;
kelvor.route.COLORS = [["#0000ff", "Blue"], ["#ff0000", "Red"], ["#00ff00", "Green"]];

/* The owner of a route or ruler point, and the module that keeps it. */
kelvor.route._owner = function (wp) { return wp.route || wp.ruler; };
kelvor.route._ownerMod = function (wp) { return wp.route ? kelvor.route : kelvor.ruler; };
/* ---- waypoint handlers (routes and rulers) ------------------------- */

kelvor.route.onMrkDown = function () {
    var R = kelvor.route, M = kelvor.marker;
    var o = R._owner(this), mod = R._ownerMod(this);
    cpApp.unSelect();
    o.select();
    M.activeMarker = this;
    var end = this === o.m[0] || this === o.m[o.m.length - 1];
    var img = o.locked ? "img/icon-50-waypoint-selected.png" :
        (end ? "img/icon-50-waypoint-selected-endpoint.png" : "img/icon-50-waypoint-selected-move.png");
    this.selected = M.getIcon(img);
    mod.menu();
};

kelvor.route.onMrkMove = function (ctx, dx, dy) {
    var R = kelvor.route;
    var o = R._owner(this), mod = R._ownerMod(this);
    if (o.locked) return;
    this.x += dx;
    this.y += dy;
    mod.modified = true;
    if (mod === R) R.showActiveLeg();
    if (cpApp && cpApp.map) cpApp.map.paintByTimer();
};

kelvor.route.onMrkUp = function () {
    var R = kelvor.route;
    var o = R._owner(this), mod = R._ownerMod(this);
    if (o.locked) return;
    if (mod === R) {
        if (!o.noauto) {
            if (!this.noauto) this.name = kelvor.chartkit.gazetteer(this.x, this.y);
            this.txt = this.name;
            o.name = o.m[0].name + " --> " + o.m[o.m.length - 1].name;
        }
    } else if (!o.noauto) {
        var n = this.noauto ? this.name : kelvor.chartkit.gazetteer(this.x, this.y);
        if (this === o.m[0]) o.nameFrom = n;
        else o.nameTo = n;
        o.name = (o.nameFrom || "") + " --> " + (o.nameTo || "");
    }
    mod.modified = true;
    cpApp.setModified();
    mod.menu();
};

/* A waypoint of owner o; the ruler's points have the same handlers. */
kelvor.route.newWp = function (o, x, y, icon, key) {
    var R = kelvor.route, M = kelvor.marker;
    var wp = new M(x, y, icon || "img/icon-50-waypoint.png");
    wp.type = 3;
    wp[key || "route"] = o;
    wp.onDown = R.onMrkDown;
    wp.onMove = R.onMrkMove;
    wp.onUp = R.onMrkUp;
    return wp;
};

kelvor.route.prototype = {
    select: function () {
        var R = kelvor.route, M = kelvor.marker;
        R.activeRoute = this;
        for (var i = 0; i < this.m.length; i++) this.m[i].ico = M.getIcon("img/icon-50-waypoint-big.png");
    },

    /* Fits the view to the points. */
    zoomTo: function () {
        if (!this.m.length) return;
        var x1 = Infinity, y1 = Infinity, x2 = -Infinity, y2 = -Infinity;
        for (var i = 0; i < this.m.length; i++) {
            var p = this.m[i];
            x1 = Math.min(x1, p.x); y1 = Math.min(y1, p.y);
            x2 = Math.max(x2, p.x); y2 = Math.max(y2, p.y);
        }
        cpApp.map.setPosWorldMerc(x1, y1, x2, y2);
    },

    /* A press on a leg: remember where and at which index a new waypoint
    ** would go. */
    onDown: function () {
        var R = kelvor.route;
        var so = cpApp.map.selObject;
        this.p = { x: so.p.x, y: so.p.y };
        this.pe = so.e;
        this.medit = null;
        cpApp.unSelect();
        this.select();
        R.menu();
    },

    /* Dragging a leg of an unlocked route pulls a new waypoint out of it. */
    onMove: function (ctx, dx, dy) {
        var R = kelvor.route, M = kelvor.marker;
        if (this.locked || !this.p) return;
        if (!this.medit) {
            var wp = R.newWp(this, this.p.x, this.p.y, "img/icon-50-waypoint-big.png");
            wp.name = "WP " + (this.m.length + 1);
            wp.txt = wp.name;
            this.m.splice(Math.max(0, Math.min(this.pe, this.m.length)), 0, wp);
            this.medit = wp;
            M.activeMarker = wp;
            R.modified = true;
        }
        this.medit.x += dx;
        this.medit.y += dy;
        if (cpApp && cpApp.map) cpApp.map.paintByTimer();
    },

    onUp: function () {
        var wp = this.medit;
        this.medit = null;
        if (wp) wp.onUp();
    },

    toJSON: function () {
        return { name: this.name, m: this.m, color: this.color, note: this.note, noauto: this.noauto, visible: this.visible };
    },

    /* Sum of great circle legs in metres. */
    geoLength: function () {
        var d = 0;
        for (var i = 1; i < this.m.length; i++) d += this.m[i - 1].geoDist(this.m[i]);
        return d;
    }
};

/* ---- creation and editing ------------------------------------------ */

/* A route of two waypoints, by default at the map centre 50 pixels to
** either side. */
kelvor.route.addNew = function (x1, y1, x2, y2) {
    var R = kelvor.route, el = kelvor.aux.el;
    var r = new R("New Route");
    if (x1 === undefined) {
        var c = cpApp.map.getPosWorldMerc(), d = 50 / cpApp.map.getBase() * MERC_SPHERE_BASE;
        x1 = c.x - d; y1 = c.y; x2 = c.x + d; y2 = c.y;
    }
    var sel = el("i_route_color");
    if (sel && sel.value) r.color = sel.value;
    r.m.push(R.newWp(r, x1, y1), R.newWp(r, x2, y2));
    r.m[0].name = r.m[0].txt = "WP 1";
    r.m[1].name = r.m[1].txt = "WP 2";
    r.length = "0 km";
    kelvor.routeList.push(r);
    return r;
};

kelvor.route.add = function () { return kelvor.aux.addItem(kelvor.route, "help-route.txt"); };

/* Takes item o of mod (a route or a ruler) out of list and its points out
** of the marker list, unselected; mod's list then counts as changed. */
kelvor.route.dropItem = function (mod, list, o) {
    var M = kelvor.marker;
    mod.unSelect();
    for (var i = 0; i < o.m.length; i++) M.remove(o.m[i]);
    var k = list.indexOf(o);
    if (k >= 0) list.splice(k, 1);
    kelvor.aux.edited(mod);
};

kelvor.route.del = function (ok) {
    var R = kelvor.route, b = kelvor.boat;
    var r = R.activeRoute;
    if (!r || r.locked || !kelvor.aux.askFirst(ok, "Delete Route ?", "kelvor.route.del(true)")) return;
    if (b.activeWayPoint && b.activeWayPoint.route === r) {
        b.activeWayPoint = false;
        b.activeBrg = 0;
    }
    R.dropItem(R, kelvor.routeList, r);
};

kelvor.route.delWaypoint = function (ok) {
    var R = kelvor.route, M = kelvor.marker;
    var r = R.activeRoute, wp = M.activeMarker;
    if (!r || r.locked || !wp || wp.route !== r || r.m.length <= 2) return;
    if (!kelvor.aux.askFirst(ok, "Delete Waypoint ?", "kelvor.route.delWaypoint(true)")) return;
    if (kelvor.boat.activeWayPoint === wp) kelvor.boat.setActiveWaypoint(false);
    r.m.splice(r.m.indexOf(wp), 1);
    M.remove(wp);
    R.removeHandle();
    kelvor.aux.edited(R);
};

kelvor.route.lock = function () { if (kelvor.route.activeRoute) kelvor.route.activeRoute.locked = true; kelvor.route.menu(); };
kelvor.route.unlock = function () {
    var R = kelvor.route;
    var r = R.activeRoute;
    if (!r) return;
    r.locked = false;
    r.visible = true;
    R.menu();
};

kelvor.route.note = function () {
    var R = kelvor.route, M = kelvor.marker;
    if (R.activeRoute) M.noteDialog(R.activeRoute.note || "", "kelvor.route.noteSave(false)");
};
kelvor.route.noteWaypoint = function () {
    var M = kelvor.marker;
    if (M.activeMarker) M.noteDialog(M.activeMarker.note || "", "kelvor.route.noteSave(true)");
};
kelvor.route.noteSave = function (wp) {
    var R = kelvor.route, M = kelvor.marker;
    M.noteTake(R, wp ? M.activeMarker : R.activeRoute);
    R.menu();
};

/* Names typed by the user; kept from now on. */
kelvor.route.rename = function (t) { kelvor.aux.rename(kelvor.route, kelvor.route.activeRoute, t); };
kelvor.route.renameWaypoint = function (t) {
    var R = kelvor.route, wp = kelvor.marker.activeMarker;
    kelvor.aux.rename(R, wp, t);
    if (!wp) return;
    wp.txt = wp.name;
    cpApp.update();
};

kelvor.route.routeColorChange = function (c) {
    var R = kelvor.route;
    if (R.activeRoute) R.activeRoute.color = String(c);
    kelvor.aux.changed(R);
    cpApp.update();
};

/* The limits stay on their waypoints, so they now bound other legs. */
kelvor.route.reverse = function () {
    var R = kelvor.route;
    var r = R.activeRoute;
    if (!r) return;
    r.m.reverse();
    kelvor.aux.edited(R);
};

kelvor.route.visible = function (flag) {
    var R = kelvor.route;
    var r = R.activeRoute;
    if (!r) return;
    r.visible = !!flag;
    kelvor.aux.edited(R);
};

kelvor.route.activate = function () {
    var R = kelvor.route;
    var r = R.activeRoute;
    if (!r) return;
    kelvor.boat.activateRoute(r);
    kelvor.boat.menu();
};

kelvor.route.share = function () {
    var r = kelvor.route.activeRoute;
    if (r) kelvor.marker.shareAs("r", r, "Route");
};

kelvor.route.showRoute = function (id) {
    try {
        kelvor.aux.showItem(kelvor.route, kelvor.routeList[Number(id)]);
    } catch (e) {
        window.alert(String(e));
    }
};

/* Selects point id of item o (a route or a ruler) and centres the map on
** it. */
kelvor.route.showPoint = function (o, id) {
    var wp = o ? o.m[Number(id)] : null;
    if (!wp) return;
    wp.onDown();
    cpApp.map.setCenter(wp.x, wp.y);
};
kelvor.route.showWayPoint = function (id) { kelvor.route.showPoint(kelvor.route.activeRoute, id); };

/* ---- bar and dashboards -------------------------------------------- */

/* The bar's buttons: id, icon, label, call, and 1 where the button
** starts hidden. */
kelvor.route._BAR = [
    ["btn_route_add", "icon-50-route.png", "New", "kelvor.route.add()"],
    ["btn_route_unlock", "icon-50-waypoint-selected-move.png", "Unlock", "kelvor.route.unlock()", 1],
    ["btn_route_lock", "icon-50-waypoint-selected.png", "Lock", "kelvor.route.lock()", 1],
    ["btn_route_activate", "icon-50-boat.png", "Activate", "kelvor.route.activate()", 1],
    ["btn_route_reverse", "icon-50-more.png", "Reverse", "kelvor.route.reverse()", 1],
    ["btn_route_visible", "auge_activ.png", "Hide", "kelvor.route.visible(false)", 1],
    ["btn_route_invisible", "auge_inactiv.png", "Show", "kelvor.route.visible(true)", 1],
    ["btn_route_note", "icon-50-log.png", "Note", "kelvor.route.note()", 1],
    ["btn_route_waypoint_note", "icon-50-log.png", "Note", "kelvor.route.noteWaypoint()", 1],
    ["btn_route_share", "icon-50-cloud.png", "Share", "kelvor.route.share()", 1],
    ["btn_route_waypoint_del", "icon-50-tool.png", "Delete", "kelvor.route.delWaypoint()", 1],
    ["btn_route_del", "icon-50-tool.png", "Delete", "kelvor.route.del()", 1]
];

/* The bar and the two dashboards, built once into the page's empty
** frames. */
kelvor.route._ui = function () {
    var R = kelvor.route, aux = kelvor.aux;
    if (!aux.menuBar("cp_route_menu", R._BAR)) return;
    aux.setText("cp_route_dash", "<select id=\"i_route_list\" onchange=\"kelvor.route.showRoute(this.value)\"></select>" +
        "<input type=\"text\" id=\"i_route_name\" onchange=\"kelvor.route.rename(this.value)\">" +
        "<select id=\"i_route_color\" onchange=\"kelvor.route.routeColorChange(this.value)\">" + aux.colorOptions(R.COLORS) +
        "</select><div><span id=\"i_route_length\"></span> <span id=\"i_route_duration\"></span></div>");
    aux.setText("cp_waypoint_dash", "<select id=\"i_waypoint_list\" onchange=\"kelvor.route.showWayPoint(this.value)\">" +
        "</select><input type=\"text\" id=\"i_waypoint_name\" onchange=\"kelvor.route.renameWaypoint(this.value)\">" +
        "<div><span id=\"i_waypoint_pos\" onclick=\"kelvor.marker.editman(this, 2)\"></span></div>" +
        "<div><span id=\"i_waypoint_leg_length\"></span> <span id=\"i_waypoint_leg_duration\"></span> " +
        "<span id=\"i_waypoint_leg_brg\"></span> XTE <span id=\"i_waypoint_leg_xte\"></span></div>");
};

kelvor.route.menu = function () {
    var R = kelvor.route, M = kelvor.marker, aux = kelvor.aux, show = kelvor.aux.show;
    R._ui();
    var r = R.activeRoute, wp = M.activeMarker && r && M.activeMarker.route === r ? M.activeMarker : false;
    cpApp.showMenuBar("cp_route_menu");
    cpApp.showDashBoard(wp ? "cp_waypoint_dash" : "cp_route_dash");
    show("btn_route_unlock", r && r.locked);
    show("btn_route_lock", r && !r.locked);
    show("btn_route_del", r && !r.locked && !wp);
    show("btn_route_waypoint_del", r && !r.locked && wp && r.m.length > 2);
    show("btn_route_note", r && !wp);
    show("btn_route_waypoint_note", !!wp);
    show("btn_route_reverse", !!r);
    show("btn_route_activate", !!r);
    show("btn_route_share", !!r);
    show("btn_route_visible", r && r.visible);
    show("btn_route_invisible", r && !r.visible);
    aux.fillList("i_route_list", kelvor.routeList, r, "Select Route");
    aux.fillList("i_waypoint_list", r ? r.m : [], wp, "Select Waypoint");
    R.showActiveRoute();
    if (wp) R.showActiveLeg();
    cpApp.update();
};

kelvor.route.showActiveRoute = function () {
    var R = kelvor.route, el = kelvor.aux.el, setText = kelvor.aux.setText;
    var r = R.activeRoute, s = kelvor.settings;
    if (!r) return;
    var d = r.geoLength(), v = Number(s.k.V.i_settings_boat_speed);
    r.length = s.fmtDist(d);
    var n = el("i_route_name");
    if (n) n.value = r.name;
    var c = el("i_route_color");
    if (c) c.value = r.color;
    setText("i_route_length", r.length);
    setText("i_route_duration", s.fmtDuration(v > 0 ? d / v : 0));
};

/* The leg that ends at the selected waypoint (the first waypoint shows
** the first leg). */
kelvor.route.legOf = function (wp) {
    var R = kelvor.route;
    var o = R._owner(wp), i = o.m.indexOf(wp);
    if (i < 0 || o.m.length < 2) return null;
    return i === 0 ? { a: o.m[0], e: o.m[1], m: o.m[1] } : { a: o.m[i - 1], e: wp, m: wp };
};

kelvor.route.showActiveLeg = function () {
    var M = kelvor.marker, el = kelvor.aux.el, setText = kelvor.aux.setText;
    var wp = M.activeMarker, s = kelvor.settings;
    if (!wp || !wp.route) return;
    var n = el("i_waypoint_name");
    if (n) n.value = wp.name;
    setText("i_waypoint_pos", M.fmtPos(wp));
    var i = wp.route.m.indexOf(wp), v = Number(s.k.V.i_settings_boat_speed);
    if (i > 0) {
        var prev = wp.route.m[i - 1], d = prev.geoDist(wp);
        setText("i_waypoint_leg_length", s.fmtDist(d));
        setText("i_waypoint_leg_duration", s.fmtDuration(v > 0 ? d / v : 0));
        setText("i_waypoint_leg_brg", s.fmtBrg(prev.brg(wp)));
    } else {
        setText("i_waypoint_leg_length", "---");
        setText("i_waypoint_leg_duration", "---");
        setText("i_waypoint_leg_brg", "---");
    }
    setText("i_waypoint_leg_xte", s.fmtDist(wp.xte || Number(s.k.S.i_settings_xte_max)));
};

/* ---- storage ------------------------------------------------------- */

/* An item of type Type (kelvor.route or kelvor.ruler) from its stored
** form o, without points: name ("***" when it has none), colour, note and
** whether the name was typed. */
kelvor.route.restoreItem = function (Type, o) {
    var r = new Type(o.name === undefined ? "***" : String(o.name));
    if (o.color) r.color = String(o.color);
    if (o.note) r.note = String(o.note);
    r.noauto = !!o.noauto;
    return r;
};

kelvor.route.load = function (text) {
    var R = kelvor.route, M = kelvor.marker;
    var l = kelvor.aux.parseList(text);
    for (var i = 0; i < l.length; i++) {
        var o = l[i];
        if (!o || !Array.isArray(o.m)) continue;
        var r = R.restoreItem(R, o);
        r.visible = o.visible !== false;
        for (var j = 0; j < o.m.length; j++) {
            var p = o.m[j];
            if (!p || !isFinite(p.x) || !isFinite(p.y)) continue;
            var wp = R.newWp(r, Number(p.x), Number(p.y));
            M.restore(wp, p);
            wp.txt = wp.name;
            r.m.push(wp);
        }
        kelvor.routeList.push(r);
    }
};

kelvor.route.save = function () { kelvor.aux.saveList(kelvor.route, "route", kelvor.routeList); };

kelvor.route.removeHandle = function () {
    var R = kelvor.route, M = kelvor.marker;
    if (R.xteHandle) M.remove(R.xteHandle);
    R.xteHandle = null;
};

/* The points of o (a route or a ruler) back to the plain icon, none of
** them selected or active. */
kelvor.route.unmark = function (o) {
    var R = kelvor.route, M = kelvor.marker;
    for (var i = 0; i < o.m.length; i++) {
        o.m[i].ico = M.getIcon("img/icon-50-waypoint.png");
        o.m[i].selected = null;
    }
    if (M.activeMarker && R._owner(M.activeMarker) === o) M.activeMarker = false;
};

kelvor.route.unSelect = function () {
    var R = kelvor.route;
    if (R.activeRoute) R.unmark(R.activeRoute);
    R.removeHandle();
    R.activeRoute = false;
};

Object.defineProperty(kelvor.route, "active", { get: function () { return kelvor.route.activeRoute; } });

/* ---- hit test ------------------------------------------------------ */

/*
** The leg test of one route against pick point p with tolerance tol.
** Returns { e, h } or null: e is the index a new waypoint would take,
** h the height of p over the leg. Three zones: on a leg (between its
** ends), before the start or past the second point of the first leg,
** and past the end of the last leg; the last two reach three
** tolerances. onlyLegs limits the test to the first zone (rulers).
*/
kelvor.route.hitLeg = function (m, p2, tol, onlyLegs) {
    var best = null, n = m.length;
    for (var j = 1; j < n; j++) {
        var p0 = m[j - 1], p1 = m[j];
        var f = Math.abs((p0.x - p1.x) * (p0.y + p1.y) + (p1.x - p2.x) * (p1.y + p2.y) + (p2.x - p0.x) * (p2.y + p0.y));
        var a = Math.sqrt((p0.x - p2.x) * (p0.x - p2.x) + (p0.y - p2.y) * (p0.y - p2.y));
        var b = Math.sqrt((p1.x - p2.x) * (p1.x - p2.x) + (p1.y - p2.y) * (p1.y - p2.y));
        var c = Math.sqrt((p0.x - p1.x) * (p0.x - p1.x) + (p0.y - p1.y) * (p0.y - p1.y));
        if (!(c > 0)) continue;
        var h = f / c, e = -1;
        if (h < tol && a < c && b < c) e = j;
        else if (onlyLegs) e = -1;
        else if (j === 1 && h < 3 * tol && a < 3 * tol) e = 0;
        else if (j === 1 && h < 3 * tol && b < 3 * tol) e = 2;
        else if (j === n - 1 && h < 3 * tol && b < 3 * tol) e = n;
        if (e >= 0 && (!best || h < best.h)) best = { e: e, h: h };
    }
    return best;
};

kelvor.route.find = function (so) {
    var R = kelvor.route;
    var tol = so.d, l = kelvor.routeList, best = null;
    for (var i = 0; i < l.length; i++) {
        if (!l[i].visible) continue;
        var hit = R.hitLeg(l[i].m, so.p, tol, false);
        if (hit && (!best || hit.h < best.h)) {
            best = hit;
            so.o = l[i];
            so.e = hit.e;
        }
    }
};

/* ---- drawing ------------------------------------------------------- */

kelvor.route._sx = function (ctx, p) { return p.x * ctx.scm - ctx.cxzero; };
kelvor.route._sy = function (ctx, p) { return p.y * ctx.scm - ctx.cyzero; };
/* A filled arrow in the middle of the leg a to e, pointing to e. */
kelvor.route.arrow = function (ctx, e, a) {
    var R = kelvor.route;
    var ax = R._sx(ctx, a), ay = R._sy(ctx, a), ex = R._sx(ctx, e), ey = R._sy(ctx, e);
    var dx = ex - ax, dy = ey - ay, l = Math.sqrt(dx * dx + dy * dy);
    if (!(l > 0)) return;
    var ux = dx / l, uy = dy / l, cx = (ax + ex) / 2, cy = (ay + ey) / 2, w = 20 / 3;
    ctx.beginPath();
    ctx.moveTo(cx + ux * 10, cy + uy * 10);
    ctx.lineTo(cx - ux * 10 - uy * w, cy - uy * 10 + ux * w);
    ctx.lineTo(cx - ux * 10 + uy * w, cy - uy * 10 - ux * w);
    ctx.closePath();
    ctx.fill();
};

/* The XTE offset vector of leg a to e in world metres: the leg's
** direction scaled to the limit over the cosine of a's latitude, turned
** a quarter. */
kelvor.route.xteOffset = function (e, a, limit) {
    var M = kelvor.marker;
    var reflat = Math.cos(M.getLatY(a.y) * kelvor.geo.RAD);
    var xtm = limit / reflat;
    var dx = e.x - a.x, dy = e.y - a.y, l = Math.sqrt(dx * dx + dy * dy);
    if (!(l > 0)) return { x: 0, y: 0, reflat: reflat };
    return { x: -dy / l * xtm, y: dx / l * xtm, reflat: reflat };
};

kelvor.route._limitOf = function (m) {
    return m && m.xte ? Number(m.xte) : Number(kelvor.settings.k.S.i_settings_xte_max);
};
kelvor.route.renderXte = function (ctx, e, a, m) {
    var R = kelvor.route;
    var d = R.xteOffset(e, a, R._limitOf(m));
    ctx.save();
    ctx.lineWidth = 1;
    ctx.strokeStyle = "#ff8000";
    for (var s = -1; s <= 1; s += 2) {
        ctx.beginPath();
        ctx.moveTo(R._sx(ctx, a) + s * d.x * ctx.scm, R._sy(ctx, a) + s * d.y * ctx.scm);
        ctx.lineTo(R._sx(ctx, e) + s * d.x * ctx.scm, R._sy(ctx, e) + s * d.y * ctx.scm);
        ctx.stroke();
    }
    ctx.restore();
};

/* The handle that sets a leg's limit by dragging. */
kelvor.route._handleMove = function (ctx, dx, dy) {
    var R = kelvor.route, M = kelvor.marker, setText = kelvor.aux.setText;
    var wp = this.wp, leg = wp ? R.legOf(wp) : null;
    if (!leg) return;
    this.x += dx;
    this.y += dy;
    var ld = M.linedist(leg.a.x, leg.a.y, leg.e.x, leg.e.y, this.x, this.y);
    var reflat = Math.cos(M.getLatY(leg.a.y) * kelvor.geo.RAD);
    wp.xte = Math.round(Math.abs(ld.lr) * ld.ab * reflat);
    this.moved = true;
    R.modified = true;
    setText("i_waypoint_leg_xte", kelvor.settings.fmtDist(wp.xte));
    if (cpApp && cpApp.map) cpApp.map.paintByTimer();
};
kelvor.route._handleUp = function () {
    this.moved = false;
    cpApp.setModified();
};
kelvor.route.placeHandle = function (leg) {
    var R = kelvor.route, M = kelvor.marker;
    var h = R.xteHandle;
    if (!h || h.wp !== leg.m) {
        R.removeHandle();
        h = new M(0, 0, "img/orange-40.png");
        h.name = h.txt = "XTE";
        h.type = 3;
        h.wp = leg.m;
        h.onDown = function () {};
        h.onMove = R._handleMove;
        h.onUp = R._handleUp;
        R.xteHandle = h;
    }
    if (h.moved) return;
    var d = R.xteOffset(leg.e, leg.a, R._limitOf(leg.m));
    h.x = (leg.a.x + leg.e.x) / 2 + d.x;
    h.y = (leg.a.y + leg.e.y) / 2 + d.y;
};

/* The leg ruler: the leg drawn on 1000 pixels past both ends, a cross
** bar through e, the leg's XTE band when m is given, and the handle on
** an unlocked route r. */
kelvor.route.renderRuler = function (ctx, e, a, m, r) {
    var R = kelvor.route;
    var ax = R._sx(ctx, a), ay = R._sy(ctx, a), ex = R._sx(ctx, e), ey = R._sy(ctx, e);
    var dx = ex - ax, dy = ey - ay, l = Math.sqrt(dx * dx + dy * dy);
    if (!(l > 0)) return;
    var ux = dx / l * 1000, uy = dy / l * 1000;
    ctx.save();
    ctx.lineWidth = 1;
    ctx.strokeStyle = "rgba(255,63,255,1)";
    ctx.beginPath();
    ctx.moveTo(ax - ux, ay - uy);
    ctx.lineTo(ex + ux, ey + uy);
    ctx.moveTo(ex - uy, ey + ux);
    ctx.lineTo(ex + uy, ey - ux);
    ctx.stroke();
    ctx.restore();
    if (m) R.renderXte(ctx, e, a, m);
    if (m && r && !r.locked) R.placeHandle({ a: a, e: e, m: m });
};

kelvor.route.render = function (ctx) {
    var R = kelvor.route, M = kelvor.marker, polyline = kelvor.aux.polyline;
    var l = kelvor.routeList, act = R.activeRoute;
    ctx.save();
    ctx.lineJoin = "round";
    for (var i = 0; i < l.length; i++) {
        var r = l[i];
        if (!r.visible && r !== act) continue;
        if (r.m.length < 2) continue;
        ctx.lineWidth = 2;
        ctx.strokeStyle = r.color;
        ctx.fillStyle = r.color;
        if (r === act) {
            for (var j = 1; j < r.m.length; j++) R.arrow(ctx, r.m[j], r.m[j - 1]);
        }
        polyline(ctx, r.m);
        if (r === act) {
            var wp = M.activeMarker && M.activeMarker.route === r ? M.activeMarker : false;
            ctx.lineWidth = r.locked || wp ? 15 : 30;
            ctx.strokeStyle = "rgba(0,128,255,0.3)";
            polyline(ctx, r.m);
            if (wp) {
                var leg = R.legOf(wp);
                if (leg) R.renderRuler(ctx, leg.e, leg.a, leg.m, r);
            }
        }
    }
    ctx.restore();
};
