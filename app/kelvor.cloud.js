/*
** kelvor.cloud.js: backups of the user's own data on the cloud endpoint.
**
** A backup holds the stored lists of markers, routes, rulers and alarms as
** their JSON text, and the rows of the log. One backup is kept per device
** name. A restore replaces all of these in one transaction on the host's
** trip database: a failure anywhere rolls back, so either everything of
** the backup is in place or nothing changed.
*/

kelvor.cloud = {
    /* Longest INSERT text sent in one request while restoring the log. */
    BATCH: 15000,

    /* Query string common to every request: authorisation value, language
    ** and time zone, and the action key with user id and device name. */
    _query: function (key, extra, auto) {
        var k = kelvor.settings.k, host = kelvor.settings.host;
        var a = getSync("/getAuth/" + encodeURIComponent(String(k.userid)));
        var name = (auto ? "auto-save" : "") + (k.devicename || host.device || "");
        var v = encodeURIComponent(String(k.userid)) + "," + encodeURIComponent(name);
        if (extra !== undefined) v += "," + encodeURIComponent(String(extra));
        return AJAXSERVER + "?" + key + "=" + v + "&a=" + encodeURIComponent(a === false ? "" : a) +
            "&alang=" + encodeURIComponent(host.alang || "en") + "&tz=" + (Number(host.tz) || 0);
    },

    _show: function (html) {
        var d = kelvor.aux.el("cp_dialog_common");
        if (d) d.innerHTML = html;
        cpApp.sizeDialog("np_dialog_common");
    },

    /* The backup document from the trip database. */
    collect: function () {
        var t = postSync("/UexecSql", "SELECT * FROM log ORDER BY ts");
        var tr = kelvor.aux.parseSql(t === false ? "[]" : t);
        return {
            mk: getSync("/getValue/marker"),
            rt: getSync("/getValue/route"),
            rl: getSync("/getValue/ruler"),
            al: getSync("/getValue/alarm"),
            tr: Array.isArray(tr) ? tr : []
        };
    },

    saveInCloud: function (auto) {
        var c = kelvor.cloud;
        try {
            cpApp.save();
            var doc = JSON.stringify(c.collect());
            var r = postSync(c._query("saveInCloud", undefined, auto), doc, APPURLENC);
            if (r === false) throw new Error("no reply");
            c._show(r);
        } catch (e) {
            console.log("saveInCloud: " + e);
            cpApp.ineterror();
        }
    },

    loadFromCloud: function (id) {
        cpApp.yesno("The content on your device will be replaced!<br>Continue ?",
            "kelvor.cloud.loadFromCloud2(" + JSON.stringify(String(id)) + ")");
    },

    loadFromCloud2: function (id) {
        cpApp.startWithWait("kelvor.cloud.loadFromCloud3(" + JSON.stringify(String(id)) + ")");
    },

    /* INSERT texts for the log rows, each ending once it passes BATCH
    ** characters; the last one carries the "Data restored" row. The old ids
    ** are not kept. v is an SQL text literal, its apostrophes doubled. */
    logBatches: function (rows, now) {
        var head = "INSERT INTO log (ts,x,y,t,v) VALUES ", out = [], q = head, n = 0;
        /* rows as the host lists them: [id, ts, x, y, t, v] */
        var row = function (r) {
            return "(" + Number(r[1]) + "," + Number(r[2]) + "," + Number(r[3]) + "," + Number(r[4]) + ",'" +
                (r[5] === null || r[5] === undefined ? "" : String(r[5]).replace(/'/g, "''")) + "')";
        };
        for (var i = 0; i < rows.length; i++) {
            q += (n ? "," : "") + row(rows[i]);
            n++;
            if (q.length > kelvor.cloud.BATCH) {
                out.push(q);
                q = head;
                n = 0;
            }
        }
        q += (n ? "," : "") + row([0, now, 999, 999, 2, "Data restored"]);
        out.push(q);
        return out;
    },

    /* A statement the host refuses answers with its error text and the
    ** restore goes on; only a host that does not answer ends it. */
    _sql: function (q) {
        var r = postSync("/UexecSql", q);
        if (r === false) throw new Error("no answer to " + q.substring(0, 40));
        return r;
    },

    /* Empties the user's objects before a restore loads the backup's: the
    ** loaders add to their lists, and every waypoint and alarm point is in
    ** the marker list too, so routes, rulers and alarms go with the markers.
    ** Nothing of before stays selected, nor steered to. */
    _clearObjects: function () {
        var b = kelvor.boat;
        cpApp.unSelect();
        kelvor.marker.markerList = [];
        kelvor.marker.activeMarker = false;
        kelvor.route.activeRoute = false;
        kelvor.route.xteHandle = null;
        kelvor.routeList = [];
        kelvor.ruler.activeRuler = false;
        kelvor.rulerList = [];
        kelvor.alarm.unSelect();
        kelvor.alarmList = [];
        if (b && b.activeWayPoint) {
            b.activeWayPoint = false;
            b.activeBrg = 0;
            kelvor.aux.show("i_boat_stop_route", false);
        }
    },

    loadFromCloud3: function (id) {
        var c = kelvor.cloud, began = false;
        try {
            var text = getSync(c._query("loadFromCloud", id));
            if (text === false) throw new Error("no reply");
            var parts = String(text).split("|---|");
            var d = kelvor.aux.el("cp_dialog_common");
            if (d) d.innerHTML = parts[0];
            var doc = JSON.parse(parts[1]);

            c._clearObjects();
            c._sql("BEGIN");
            began = true;
            var mods = [["rt", kelvor.route], ["al", kelvor.alarm], ["rl", kelvor.ruler], ["mk", kelvor.marker]];
            for (var i = 0; i < mods.length; i++) {
                var v = doc[mods[i][0]], m = mods[i][1];
                if (v === undefined || v === null || v === false || !m) continue;
                m.load(typeof v === "string" ? v : JSON.stringify(v));
                m.modified = true;
            }
            c._sql("DELETE FROM log");
            var b = c.logBatches(Array.isArray(doc.tr) ? doc.tr : [], new Date().gT());
            for (var j = 0; j < b.length; j++) c._sql(b[j]);
            c._sql("COMMIT");
            began = false;
            if (kelvor.track && kelvor.track.clearTrack) kelvor.track.clearTrack();
            cpApp.sizeDialog("np_dialog_common");
            cpApp.save();
        } catch (e) {
            console.log("loadFromCloud: " + e);
            if (began) postSync("/UexecSql", "ROLLBACK");
            cpApp.ineterror();
        }
    },

    syncMrCloud: function () {
        var c = kelvor.cloud;
        try {
            var r = getSync(c._query("syncMrCloud"));
            if (r === false) throw new Error("no reply");
            c._show(r);
        } catch (e) {
            console.log("syncMrCloud: " + e);
            cpApp.ineterror();
        }
    },

    delfromMrCloud: function (id, ev) {
        var c = kelvor.cloud;
        ev = ev || window.event;
        if (ev) {
            if (ev.stopPropagation) ev.stopPropagation();
            ev.cancelBubble = true;
        }
        try {
            var r = getSync(c._query("delInCloud", id));
            if (r === false) throw new Error("no reply");
            c._show(r);
        } catch (e) {
            console.log("delfromMrCloud: " + e);
            cpApp.ineterror();
        }
    }
};
