/*
** kelvor.alarm.js: alarm lines and alarm circles.
**
** The user lays out lines (a polyline of two or more points) and circles
** (centre m[0], a point on the rim m[1]) and arms one of them. Each status
** reply tests the armed alarm against the boat: the first test learns on
** which side the boat is, a later test on the other side sounds the klaxon
** and opens the alarm dialog until the user acknowledges. Acknowledging
** keeps the alarm armed and makes it learn its side anew, so it then
** guards the way back.
**
** Alarm points are map points of type 7 in the shared marker list. Their
** icon is blank, so they are invisible until the alarm is selected.
*/

kelvor.alarm = function (name) {
    this.name = name || "***";
    this.m = [];
    this.color = "#ff0000";
    this.locked = true;
    this.noauto = false;
    this.aType = 0;
    this.note = "";
    this.side = 0;
    this.medit = false;
    this.p = false;
    this.length = "";
};

kelvor.alarmList = [];

kelvor.alarm.activeAlarm = false;
/* the same object under the name the frame's unSelect looks at */
kelvor.alarm.active = false;
kelvor.alarm.modified = false;
kelvor.alarm.running = false;
kelvor.alarm.klaxontimer = null;
kelvor.alarm.activePoint = false;

kelvor.alarm.ICON_HIDDEN = "img/blank.png";
kelvor.alarm.ICON_SHOWN = "img/icon-50-waypoint-big.png";
kelvor.alarm.COLORS = [["#ff0000", "Red"], ["#0000ff", "Blue"], ["#00ff00", "Green"]];

/* Plane-metre measure of p against a-b: ab, lr (offset as a fraction
** of the length, right of a->b positive), fb (0 at a, 1 at b). */
kelvor.alarm.linedist = function (ax, ay, bx, by, px, py) {
    return kelvor.navrte.linedist(ax, ay, bx, by, px, py, 0, 0, 1);
};

kelvor.alarm.radius = function (al) {
    var a = al.m[0], b = al.m[1];
    return Math.sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y));
};

/*
** The side of point p against an alarm: 1 or -1, or 0 when a line
** alarm has no segment that p is abeam of. For a line the nearest
** abeam segment decides, by the sign of its offset; for a circle 1 is
** strictly inside, so a point on the rim is outside (-1).
*/
kelvor.alarm.sideOf = function (al, p) {
    var A = kelvor.alarm;
    var m = al.m;
    if (al.aType === 1) return A.radius(al) > Math.sqrt((p.x - m[0].x) * (p.x - m[0].x) + (p.y - m[0].y) * (p.y - m[0].y)) ? 1 : -1;
    var side = 0, best = 9999999999999;
    for (var i = 0; i + 1 < m.length; i++) {
        var d = A.linedist(m[i].x, m[i].y, m[i + 1].x, m[i + 1].y, p.x, p.y);
        if (d.fb > 0 && d.fb < 1) {
            var dist = Math.abs(d.lr * d.ab);
            if (dist < best) {
                best = dist;
                side = d.lr > 0 ? 1 : -1;
            }
        }
    }
    return side;
};

/* Per status while armed. A side of 0 (not yet known) is learnt; a
** different known side triggers. The stored side stays, so the alarm
** repeats each round until acknowledged. */
kelvor.alarm.monitor = function (boat) {
    var A = kelvor.alarm;
    var al = A.running;
    if (!al || al.m.length < 2) return;
    var side = A.sideOf(al, boat);
    if (side === 0) return;
    if (al.side === 0) {
        al.side = side;
        return;
    }
    if (side !== al.side) {
        A.klaxon(1);
        cpApp.confirm("ALARM<br><br><b>Alarm triggered</b>", "kelvor.alarm.off()");
    }
};

/* The klaxon: once a second the beep plays again until switched off. */
kelvor.alarm.klaxon = function (on) {
    var A = kelvor.alarm, el = kelvor.aux.el;
    if (on) {
        if (A.klaxontimer) return;
        A.klaxontimer = window.setInterval(function () {
            var au = el("klaxon");
            if (!au) return;
            au.src = "img/beep-05.mp3";
            var pr = au.play();
            if (pr && pr.catch) pr.catch(function () { /* no sound device: the dialog remains */ });
        }, 1000);
    } else if (A.klaxontimer) {
        window.clearInterval(A.klaxontimer);
        A.klaxontimer = null;
    }
};

kelvor.alarm.on = function () {
    var A = kelvor.alarm;
    if (!A.activeAlarm) return;
    A.running = A.activeAlarm;
    A.running.side = 0;
    A.menu();
    cpApp.update();
};

/* The acknowledge: armed still, learning the side anew. */
kelvor.alarm.off = function () {
    var A = kelvor.alarm;
    A.klaxon(0);
    if (A.running) A.running.side = 0;
};

kelvor.alarm.disable = function () {
    var A = kelvor.alarm;
    A.klaxon(0);
    if (A.running) A.running.side = 0;
    A.running = false;
    A.menu();
    cpApp.update();
};

/* ---- points ---------------------------------------------------------- */

kelvor.alarm._newPoint = function (al, x, y, name) {
    var A = kelvor.alarm;
    var p = new kelvor.marker(x, y, A.ICON_HIDDEN);
    p.name = name || "";
    p.type = 7;
    p.alarm = al;
    p.onDown = A._onMrkDown;
    p.onMove = A._onMrkMove;
    p.onUp = A._onMrkUp;
    return p;
};
kelvor.alarm._removePoint = function (p) {
    if (kelvor.marker.remove) kelvor.marker.remove(p);
    else if (kelvor.marker.markerList) {
        var i = kelvor.marker.markerList.indexOf(p);
        if (i >= 0) kelvor.marker.markerList.splice(i, 1);
    }
};
kelvor.alarm._setIcons = function (al, icon) {
    for (var i = 0; i < al.m.length; i++) {
        var p = al.m[i];
        p.i = icon;
        p.src = icon;
        p.selected = null;
    }
};
kelvor.alarm._onMrkDown = function () {
    var A = kelvor.alarm;
    var al = this.alarm;
    A.select(al);
    A.activePoint = this;
    if (kelvor.marker.getIcon) this.selected = kelvor.marker.getIcon("img/icon-50-waypoint-selected-move.png");
    A.menu();
    A.showActiveLeg();
};
/* A circle's centre moves alone: the rim point stays, so the radius
** changes with the centre. */
kelvor.alarm._onMrkMove = function (ctx, dx, dy) {
    var A = kelvor.alarm;
    var al = this.alarm;
    if (al.locked) return;
    this.x += dx;
    this.y += dy;
    A.modified = true;
    A.showActiveLeg();
};
kelvor.alarm._onMrkUp = function () {
    var A = kelvor.alarm;
    if (!this.alarm.locked) kelvor.aux.changed(A);
    A.showactiveAlarm();
};
/* ---- list operations ---------------------------------------------- */

kelvor.alarm.select = function (al) {
    var A = kelvor.alarm;
    if (A.activeAlarm !== al) {
        cpApp.unSelect();
        A.activeAlarm = al;
        A.active = al;
        A.activePoint = false;
        A._setIcons(al, A.ICON_SHOWN);
    }
    cpApp.showMenuBar("cp_alarm_menu");
    A.showactiveAlarm();
};

kelvor.alarm.unSelect = function () {
    var A = kelvor.alarm;
    if (A.activeAlarm) A._setIcons(A.activeAlarm, A.ICON_HIDDEN);
    A.activeAlarm = false;
    A.active = false;
    A.activePoint = false;
};

/* A new line (0) or circle (1) at the map centre, 100 pixels wide. */
kelvor.alarm.add = function (t) {
    var A = kelvor.alarm;
    cpApp.unSelect();
    var map = cpApp.map, c = map.getPosWorldMerc(), d = 50 / map.getScm();
    var al = new kelvor.alarm("New alarm");
    al.aType = Number(t) === 1 ? 1 : 0;
    al.locked = false;
    al.m.push(A._newPoint(al, c.x - d, c.y, "AP 1"));
    al.m.push(A._newPoint(al, c.x + d, c.y, "AP 2"));
    kelvor.alarmList.push(al);
    A.select(al);
    cpApp.helpBubbleShow("help_bubble_center", "help-alarm.txt");
    kelvor.aux.edited(A);
    return al;
};

kelvor.alarm.del = function (ok) {
    var A = kelvor.alarm;
    var al = A.activeAlarm;
    if (!al || !kelvor.aux.askFirst(ok, "Delete alarm ?", "kelvor.alarm.del(true)")) return;
    for (var i = 0; i < al.m.length; i++) A._removePoint(al.m[i]);
    var j = kelvor.alarmList.indexOf(al);
    if (j >= 0) kelvor.alarmList.splice(j, 1);
    A.unSelect();
    kelvor.aux.edited(A);
};

kelvor.alarm.delWaypoint = function (ok) {
    var A = kelvor.alarm;
    var al = A.activeAlarm, p = A.activePoint;
    if (!al || !p || al.locked || al.aType === 1 || al.m.length <= 2) return;
    if (!kelvor.aux.askFirst(ok, "Delete Point ?", "kelvor.alarm.delWaypoint(true)")) return;
    A._removePoint(p);
    al.m.splice(al.m.indexOf(p), 1);
    A.activePoint = false;
    kelvor.aux.edited(A);
};

kelvor.alarm.lock = function () {
    var A = kelvor.alarm;
    if (A.activeAlarm) A.activeAlarm.locked = true;
    A.menu();
    cpApp.update();
};

kelvor.alarm.unlock = function () {
    var A = kelvor.alarm;
    if (A.activeAlarm) A.activeAlarm.locked = false;
    A.menu();
    cpApp.update();
};

/* Notes of the alarm and of its selected point go through the note
** dialogue that markers, routes and rulers use. */
kelvor.alarm.note = function () {
    var A = kelvor.alarm;
    if (A.activeAlarm) kelvor.marker.noteDialog(A.activeAlarm.note || "", "kelvor.alarm.noteSave(false)");
};

kelvor.alarm.noteWaypoint = function () {
    var A = kelvor.alarm;
    if (A.activePoint) kelvor.marker.noteDialog(A.activePoint.note || "", "kelvor.alarm.noteSave(true)");
};

kelvor.alarm.noteSave = function (point) {
    var A = kelvor.alarm;
    kelvor.marker.noteTake(A, point ? A.activePoint : A.activeAlarm);
    A.menu();
    cpApp.update();
};

kelvor.alarm.alarmColorChange = function (sel) {
    var A = kelvor.alarm;
    if (!A.activeAlarm) return;
    A.activeAlarm.color = sel.value;
    kelvor.aux.changed(A);
    cpApp.update();
};

kelvor.alarm.rename = function (inp) { kelvor.aux.rename(kelvor.alarm, kelvor.alarm.activeAlarm, inp.value); };

kelvor.alarm.showAlarm = function (id) {
    var A = kelvor.alarm;
    var al = kelvor.alarmList[Number(id)];
    if (!al) return;
    A.select(al);
    A.menu();
    var c = al.m[0];
    cpApp.map.setCenter(c.x, c.y);
    cpApp.update();
};

kelvor.alarm.showWayPoint = function (id) {
    var A = kelvor.alarm;
    var al = A.activeAlarm, p = al && al.m[Number(id)];
    if (!p) return;
    A.activePoint = p;
    cpApp.map.setCenter(p.x, p.y);
    A.showActiveLeg();
    cpApp.update();
};

/* Menu buttons follow the selection. */
kelvor.alarm.menu = function () {
    var A = kelvor.alarm, show = kelvor.aux.show;
    var al = A.activeAlarm;
    cpApp.showMenuBar("cp_alarm_menu");
    show("btn_alarm_on", !!al && al !== A.running);
    show("btn_alarm_off", !!al && al === A.running);
    show("btn_alarm_lock", !!al && !al.locked);
    show("btn_alarm_unlock", !!al && al.locked);
    show("btn_alarm_del", !!al && ((!al.locked && !A.activePoint) || al.aType === 1));
    show("btn_alarm_waypoint_del", !!al && !al.locked && !!A.activePoint && al.aType === 0 && al.m.length > 2);
    show("btn_alarm_note", !!al && !A.activePoint);
    show("btn_alarm_waypoint_note", !!al && !!A.activePoint);
};

/* Length along the points and the time at the boat's speed. */
kelvor.alarm.showactiveAlarm = function () {
    var A = kelvor.alarm, el = kelvor.aux.el;
    var al = A.activeAlarm, dash = el("cp_alarm_dash");
    if (!dash) return;
    var s = kelvor.settings, h = "<select id=\"i_alarm_select\" onchange=\"kelvor.alarm.showAlarm(this.value)\">";
    if (!al) h += "<option value=\"-1\">" + "Select Alarm" + "</option>";
    for (var i = 0; i < kelvor.alarmList.length; i++) {
        h += "<option value=\"" + i + "\"" + (kelvor.alarmList[i] === al ? " selected" : "") + ">" + (i + 1) +
            " - " + kelvor.aux.esc(kelvor.alarmList[i].name) + "</option>";
    }
    h += "</select>";
    if (al) {
        var len = 0;
        for (var j = 0; j + 1 < al.m.length; j++) len += A._geoDist(al.m[j], al.m[j + 1]);
        if (al.aType === 1) len = 2 * Math.PI * A._geoDist(al.m[0], al.m[1]);
        al.length = s.fmtDist(len);
        var spd = Number(s.k.V.i_settings_boat_speed) || 0;
        h += " <input type=\"text\" id=\"i_alarm_name\" value=\"" + kelvor.aux.esc(al.name) +
            "\" onchange=\"kelvor.alarm.rename(this)\"> <span id=\"i_alarm_length\">" + al.length +
            "</span> <span id=\"i_alarm_duration\">" + (spd > 0 ? s.fmtDuration(len / spd) : "---") + "</span>" +
            " <select id=\"i_alarm_color\" onchange=\"kelvor.alarm.alarmColorChange(this)\">";
        for (var c = 0; c < A.COLORS.length; c++) {
            h += "<option value=\"" + A.COLORS[c][0] + "\"" + (al.color === A.COLORS[c][0] ? " selected" : "") + ">" +
                A.COLORS[c][1] + "</option>";
        }
        h += "</select>";
    }
    dash.innerHTML = h;
    cpApp.showDashBoard("cp_alarm_dash");
};

/* The point's values go to a bar that the frame does not show; asking
** for it only closes the other bars. */
kelvor.alarm.showActiveLeg = function () {
    var A = kelvor.alarm, el = kelvor.aux.el;
    var p = A.activePoint, dash = el("cp_alarmpoint_dash"), s = kelvor.settings;
    if (!p || !dash) return;
    var al = p.alarm, i = al.m.indexOf(p), q = al.m[i > 0 ? i - 1 : 1];
    dash.innerHTML = "<span id=\"i_alarmpoint_pos\">" + s.fmtGeo(kelvor.geo.y2lat(p.y), "N", "S") + " " + s.fmtGeo(kelvor.geo.x2lon(p.x), s.EAST || "E", "W") + "</span> <span id=\"i_alarmpoint_leg_length\">" +
        s.fmtDist(A._geoDist(q, p)) + "</span> <span id=\"i_alarmpoint_leg_brg\">" +
        s.fmtBrg(Math.atan2(p.x - q.x, q.y - p.y) / kelvor.geo.RAD) + "</span>";
    cpApp.showDashBoard("cp_alarmpoint_dash");
};

kelvor.alarm._geoDist = function (a, b) {
    var G = kelvor.geo;
    return G.dist(G.y2lat(a.y), G.x2lon(a.x), G.y2lat(b.y), G.x2lon(b.x));
};
/* ---- hit test and dragging ---------------------------------------- */

/* Circles: any pick inside. Lines as routes: near a leg between its
** ends, or within three tolerances before the start or past the end. */
kelvor.alarm.find = function (so) {
    var A = kelvor.alarm;
    var p = so.p, tol = so.d, best = null;
    for (var i = 0; i < kelvor.alarmList.length; i++) {
        var al = kelvor.alarmList[i], m = al.m;
        if (m.length < 2) continue;
        if (al.aType === 1) {
            var d = Math.sqrt((p.x - m[0].x) * (p.x - m[0].x) + (p.y - m[0].y) * (p.y - m[0].y));
            if (d < A.radius(al)) {
                al.e = 0;
                so.o = al;
            }
            continue;
        }
        var hit = kelvor.route.hitLeg(m, p, tol, false);
        if (hit && (!best || hit.h < best.h)) {
            best = hit;
            al.e = hit.e;
            so.o = al;
        }
    }
};

kelvor.alarm.prototype = {
    onDown: function (ctx) {
        var so = cpApp.map.selObject;
        this.p = { x: so.p.x, y: so.p.y };
        this.medit = false;
        kelvor.alarm.select(this);
        kelvor.alarm.activePoint = false;
        kelvor.alarm.menu();
    },
    /* Dragging a line's leg inserts a point at the press point; a
    ** circle is edited by its two points only. */
    onMove: function (ctx, dx, dy) {
        if (this.locked || this.aType === 1) return;
        if (!this.medit) {
            this.medit = kelvor.alarm._newPoint(this, this.p.x, this.p.y, "AP " + (this.m.length + 1));
            this.medit.i = kelvor.alarm.ICON_SHOWN;
            this.m.splice(this.e, 0, this.medit);
            kelvor.alarm.activePoint = this.medit;
            kelvor.alarm.modified = true;
        }
        this.medit.x += dx;
        this.medit.y += dy;
    },
    onUp: function () {
        if (this.medit) {
            this.medit = false;
            cpApp.setModified();
        }
        kelvor.alarm.showactiveAlarm();
    },
    toJSON: function () {
        var m = [];
        for (var i = 0; i < this.m.length; i++) {
            var o = { name: this.m[i].name, x: Math.round(this.m[i].x), y: Math.round(this.m[i].y) };
            if (this.m[i].noauto) o.noauto = true;
            if (this.m[i].note) o.note = this.m[i].note;
            m.push(o);
        }
        return { name: this.name, m: m, color: this.color, note: this.note, noauto: this.noauto, aType: this.aType };
    }
};

/* ---- drawing -------------------------------------------------------- */

kelvor.alarm._path = function (ctx, al) {
    var A = kelvor.alarm;
    var f = ctx.scm, x0 = ctx.cxzero, y0 = ctx.cyzero, m = al.m;
    ctx.beginPath();
    if (al.aType === 1) {
        ctx.arc(m[0].x * f - x0, m[0].y * f - y0, A.radius(al) * f, 0, 2 * Math.PI);
    } else {
        ctx.moveTo(m[0].x * f - x0, m[0].y * f - y0);
        for (var i = 1; i < m.length; i++) ctx.lineTo(m[i].x * f - x0, m[i].y * f - y0);
    }
    ctx.stroke();
};
kelvor.alarm.render = function (ctx) {
    var A = kelvor.alarm;
    ctx.save();
    ctx.setLineDash([]);
    for (var i = 0; i < kelvor.alarmList.length; i++) {
        var al = kelvor.alarmList[i];
        if (al.m.length < 2) continue;
        var wide = al.locked || A.activePoint ? 15 : 30;
        ctx.lineWidth = 2;
        ctx.strokeStyle = al.color;
        A._path(ctx, al);
        var armed = al === A.running, active = al === A.activeAlarm;
        if (armed) {
            /* armed and selected: the armed band is drawn wider
            ** around the selection band, so both show */
            ctx.lineWidth = active ? wide + 20 : wide;
            ctx.strokeStyle = "rgba(255,63,0,0.3)";
            A._path(ctx, al);
            ctx.lineWidth = 1;
            ctx.strokeStyle = al.color;
            A._path(ctx, al);
        }
        if (active) {
            ctx.lineWidth = wide;
            ctx.strokeStyle = "rgba(0,128,255,0.3)";
            A._path(ctx, al);
            ctx.lineWidth = 1;
            ctx.strokeStyle = "rgba(255,63,255,1)";
            A._path(ctx, al);
            if (!armed && al.aType === 0 && A.activePoint && kelvor.route && kelvor.route.renderRuler) {
                var k = al.m.indexOf(A.activePoint), a = al.m[k > 0 ? k - 1 : 0], b = al.m[k > 0 ? k : 1];
                try { kelvor.route.renderRuler(ctx, b, a, false, al); } catch (e) { /* ruler drawing is optional */ }
            }
        }
    }
    ctx.restore();
};

/* ---- storage -------------------------------------------------------- */

/* Takes the stored JSON text; anything that is not an array counts as
** "[]". All alarms load locked and disarmed. */
kelvor.alarm.load = function (text) {
    var A = kelvor.alarm;
    var l = kelvor.aux.parseList(text);
    kelvor.alarmList = [];
    for (var i = 0; i < l.length; i++) {
        var o = l[i];
        if (!o || !Array.isArray(o.m) || o.m.length < 2) continue;
        var al = new kelvor.alarm(o.name === undefined ? "***" : String(o.name));
        al.color = o.color || "#ff0000";
        al.note = o.note || "";
        al.noauto = !!o.noauto;
        al.aType = Number(o.aType) === 1 ? 1 : 0;
        for (var j = 0; j < o.m.length; j++) {
            var q = o.m[j];
            if (!q || !isFinite(q.x) || !isFinite(q.y)) continue;
            var p = A._newPoint(al, Number(q.x), Number(q.y), q.name);
            if (q.noauto) p.noauto = true;
            if (q.note) p.note = q.note;
            al.m.push(p);
        }
        if (al.m.length >= 2) kelvor.alarmList.push(al);
    }
    A.running = false;
};

kelvor.alarm.save = function () { kelvor.aux.saveList(kelvor.alarm, "alarm", kelvor.alarmList); };
