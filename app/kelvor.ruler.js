/*
** kelvor.ruler.js: the user's rulers.
**
** A ruler is a two-point bearing line. It shares the route's shape, its
** waypoint handlers and its drawing helpers; it has no hidden state and
** its hit test knows only the leg itself. Stored under the key "ruler".
*/

kelvor.ruler = function (name) {
    this.name = name || "***";
    this.m = [];
    this.color = "#ff00ff";
    this.locked = true;
    this.noauto = false;
    this.note = "";
    this.nameFrom = "";
    this.nameTo = "";
};

kelvor.rulerList = [];

kelvor.ruler.activeRuler = false;
kelvor.ruler.modified = false;
kelvor.ruler.COLORS = [["#ff00ff", "Magenta"]].concat(kelvor.route.COLORS);

/* The selected end point of the active ruler, or false. */
kelvor.ruler._activePoint = function () {
    var U = kelvor.ruler, M = kelvor.marker;
    var r = U.activeRuler;
    return r && M.activeMarker && M.activeMarker.ruler === r ? M.activeMarker : false;
};

kelvor.ruler.prototype = {
    select: function () {
        var U = kelvor.ruler, M = kelvor.marker;
        U.activeRuler = this;
        for (var i = 0; i < this.m.length; i++) this.m[i].ico = M.getIcon("img/icon-50-waypoint-big.png");
    },
    zoomTo: kelvor.route.prototype.zoomTo,
    onDown: function () {
        var U = kelvor.ruler;
        cpApp.unSelect();
        this.select();
        U.menu();
    },
    onMove: function () {},
    onUp: function () {},
    toJSON: function () {
        return { name: this.name, note: this.note, m: this.m, color: this.color, noauto: this.noauto };
    }
};

kelvor.ruler.addNew = function () {
    var U = kelvor.ruler, R = kelvor.route;
    var r = new U("New Ruler");
    var c = cpApp.map.getPosWorldMerc(), d = 50 / cpApp.map.getBase() * MERC_SPHERE_BASE;
    r.m.push(R.newWp(r, c.x - d, c.y, null, "ruler"), R.newWp(r, c.x + d, c.y, null, "ruler"));
    r.m[0].name = "WP 1";
    r.m[1].name = "WP 2";
    kelvor.rulerList.push(r);
    return r;
};

kelvor.ruler.add = function () { return kelvor.aux.addItem(kelvor.ruler, "help-ruler.txt"); };

kelvor.ruler.del = function (ok) {
    var U = kelvor.ruler;
    var r = U.activeRuler;
    if (!r || r.locked || !kelvor.aux.askFirst(ok, "Delete Ruler ?", "kelvor.ruler.del(true)")) return;
    kelvor.route.dropItem(U, kelvor.rulerList, r);
};

kelvor.ruler.lock = function () { if (kelvor.ruler.activeRuler) kelvor.ruler.activeRuler.locked = true; kelvor.ruler.menu(); };
kelvor.ruler.unlock = function () { if (kelvor.ruler.activeRuler) kelvor.ruler.activeRuler.locked = false; kelvor.ruler.menu(); };

kelvor.ruler.note = function () {
    var U = kelvor.ruler, M = kelvor.marker;
    if (U.activeRuler) M.noteDialog(U.activeRuler.note || "", "kelvor.ruler.noteSave(false)");
};
kelvor.ruler.noteWaypoint = function () {
    var U = kelvor.ruler, M = kelvor.marker;
    var wp = U._activePoint();
    if (wp) M.noteDialog(wp.note || "", "kelvor.ruler.noteSave(true)");
};
kelvor.ruler.noteSave = function (point) {
    var U = kelvor.ruler;
    kelvor.marker.noteTake(U, point ? U._activePoint() : U.activeRuler);
    U.menu();
};

kelvor.ruler.rename = function (t) { kelvor.aux.rename(kelvor.ruler, kelvor.ruler.activeRuler, t); };

kelvor.ruler.rulerColorChange = function (c) {
    var U = kelvor.ruler;
    if (!U.activeRuler) return;
    U.activeRuler.color = String(c);
    kelvor.aux.changed(U);
    cpApp.update();
};

/* Selects end point id of the active ruler and centres the map on it. */
kelvor.ruler.showWayPoint = function (id) { kelvor.route.showPoint(kelvor.ruler.activeRuler, id); };

kelvor.ruler.share = function () {
    var r = kelvor.ruler.activeRuler;
    if (r) kelvor.marker.shareAs("r", r, "Ruler");
};

kelvor.ruler.showRuler = function (id) {
    var r = kelvor.rulerList[Number(id)];
    if (r) kelvor.aux.showItem(kelvor.ruler, r);
};

/* The bar's buttons: id, icon, label, call, and 1 where the button
** starts hidden. */
kelvor.ruler._BAR = [
    ["btn_ruler_add", "icon-50-ruler.png", "New", "kelvor.ruler.add()"],
    ["btn_ruler_unlock", "icon-50-waypoint-selected-move.png", "Unlock", "kelvor.ruler.unlock()", 1],
    ["btn_ruler_lock", "icon-50-waypoint-selected.png", "Lock", "kelvor.ruler.lock()", 1],
    ["btn_ruler_note", "icon-50-log.png", "Note", "kelvor.ruler.note()", 1],
    ["btn_ruler_waypoint_note", "icon-50-log.png", "Note", "kelvor.ruler.noteWaypoint()", 1],
    ["btn_ruler_share", "icon-50-cloud.png", "Share", "kelvor.ruler.share()", 1],
    ["btn_ruler_del", "icon-50-tool.png", "Delete", "kelvor.ruler.del()", 1]
];

/* The bar and the dashboard, built once into the page's empty frames. */
kelvor.ruler._ui = function () {
    var U = kelvor.ruler, aux = kelvor.aux;
    if (!aux.menuBar("cp_ruler_menu", U._BAR)) return;
    aux.setText("cp_ruler_dash", "<select id=\"i_ruler_list\" onchange=\"kelvor.ruler.showRuler(this.value)\"></select>" +
        "<input type=\"text\" id=\"i_ruler_name\" onchange=\"kelvor.ruler.rename(this.value)\">" +
        "<select id=\"i_ruler_color\" onchange=\"kelvor.ruler.rulerColorChange(this.value)\">" + aux.colorOptions(U.COLORS) +
        "</select><select id=\"i_ruler_point_list\" onchange=\"kelvor.ruler.showWayPoint(this.value)\"></select>" +
        "<div><span id=\"i_ruler_length\"></span> <span id=\"i_ruler_brg\"></span></div>" +
        "<div><span id=\"i_ruler_pos\" onclick=\"kelvor.marker.editman(this, 3)\"></span></div>");
};

kelvor.ruler.menu = function () {
    var U = kelvor.ruler, M = kelvor.marker, aux = kelvor.aux, el = kelvor.aux.el, setText = kelvor.aux.setText, show = kelvor.aux.show;
    U._ui();
    var r = U.activeRuler, s = kelvor.settings, wp = U._activePoint();
    cpApp.showMenuBar("cp_ruler_menu");
    cpApp.showDashBoard("cp_ruler_dash");
    show("btn_ruler_unlock", r && r.locked);
    show("btn_ruler_lock", r && !r.locked);
    show("btn_ruler_note", !!r && !wp);
    show("btn_ruler_waypoint_note", !!wp);
    show("btn_ruler_share", !!r);
    show("btn_ruler_del", r && !r.locked);
    aux.fillList("i_ruler_list", kelvor.rulerList, r, "Select Ruler");
    aux.fillList("i_ruler_point_list", r ? r.m : [], wp, "Select Point");
    if (r && r.m.length === 2) {
        var n = el("i_ruler_name");
        if (n) n.value = r.name;
        setText("i_ruler_length", s.fmtDist(r.m[0].geoDist(r.m[1])));
        setText("i_ruler_brg", s.fmtBrg(r.m[0].brg(r.m[1])));
        setText("i_ruler_pos", M.fmtPos(wp || r.m[0]));
        var c = el("i_ruler_color");
        if (c) c.value = r.color;
    }
    cpApp.update();
};

/* The two end points of each stored ruler load; one with fewer, or with
** an end point that is not an object, is passed over. */
kelvor.ruler.load = function (text) {
    var U = kelvor.ruler, R = kelvor.route, M = kelvor.marker;
    var l = kelvor.aux.parseList(text);
    for (var i = 0; i < l.length; i++) {
        var o = l[i];
        if (!o || !Array.isArray(o.m) || o.m.length < 2 || !o.m[0] || !o.m[1]) continue;
        var r = R.restoreItem(U, o);
        for (var j = 0; j < 2; j++) {
            var p = o.m[j];
            var wp = R.newWp(r, Number(p.x) || 0, Number(p.y) || 0, null, "ruler");
            M.restore(wp, p);
            r.m.push(wp);
        }
        kelvor.rulerList.push(r);
    }
};

kelvor.ruler.save = function () { kelvor.aux.saveList(kelvor.ruler, "ruler", kelvor.rulerList); };

kelvor.ruler.unSelect = function () {
    var U = kelvor.ruler;
    if (U.activeRuler) kelvor.route.unmark(U.activeRuler);
    U.activeRuler = false;
};

Object.defineProperty(kelvor.ruler, "active", { get: function () { return kelvor.ruler.activeRuler; } });

kelvor.ruler.find = function (so) {
    var R = kelvor.route;
    var tol = so.d, l = kelvor.rulerList, best = null;
    for (var i = 0; i < l.length; i++) {
        var hit = R.hitLeg(l[i].m, so.p, tol, true);
        if (hit && (!best || hit.h < best.h)) {
            best = hit;
            so.o = l[i];
            so.e = hit.e;
        }
    }
};

kelvor.ruler.render = function (ctx) {
    var U = kelvor.ruler, M = kelvor.marker, R = kelvor.route, aux = kelvor.aux;
    var l = kelvor.rulerList, act = U.activeRuler;
    ctx.save();
    for (var i = 0; i < l.length; i++) {
        var r = l[i];
        if (r.m.length < 2) continue;
        ctx.lineWidth = 2;
        ctx.strokeStyle = r.color;
        ctx.fillStyle = r.color;
        aux.polyline(ctx, r.m);
        if (r !== act) continue;
        ctx.lineWidth = r.locked ? 15 : 30;
        ctx.strokeStyle = "rgba(0,128,255,0.3)";
        aux.polyline(ctx, r.m);
        ctx.lineWidth = 1;
        ctx.strokeStyle = r.color;
        aux.polyline(ctx, r.m);
        R.arrow(ctx, r.m[1], r.m[0]);
        var sel = M.activeMarker && M.activeMarker.ruler === r ? M.activeMarker : null;
        if (sel) {
            var e = sel, a = sel === r.m[0] ? r.m[1] : r.m[0];
            R.renderRuler(ctx, e, a, null, null);
        }
    }
    ctx.restore();
};
