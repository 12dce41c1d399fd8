/*
** kelvor.js: the base layer of the chart client.
**
** Defines the one global namespace `kelvor`, the constants every module
** reads, the helper set `kelvor.aux`, the four request functions that all
** talk to the host (and, for the cloud, to AJAXSERVER) and the object form
** `kelvor.ajax`. Classic script: no modules, no syntax past Chromium 87.
*/

var MERC_SPHERE_BASE = 40030178.618589391188160183529977;
var APPURLENC = "application/x-www-form-urlencoded";
/* The host of the cloud endpoint is a deployment setting. The default lies
** under the reserved .invalid domain, so an unconfigured build never reaches
** anybody's server: every remote call fails fast and takes its error path. */
var AJAXSERVER = "http://cloud.mareplot.invalid/ajax3-568.php";
var ADEBUG = false;
var MRDLGWIDTH = 420;
/* user id, user token, language: sent as the Accept header of every request */
var XHDRAUTH = [0, "void", ""];

var kelvor = {
    g: null
};

/*
** kelvor.geo: the one Mercator and the one great-circle formula of the
** client. World metres are the plane of side MERC_SPHERE_BASE, origin in
** the north-west corner, y growing southward; the map view passes its own
** side (the pixel base of the zoom) as B, everything else leaves B out.
*/
kelvor.geo = {
    /* radians per degree, for every conversion in the client */
    RAD: Math.PI / 180,
    /* radius of the sphere whose circumference is MERC_SPHERE_BASE */
    RADIUS: 6371000.8,

    lon2x: function (lon, B) { return (lon + 180) / 360 * (B || MERC_SPHERE_BASE); },
    x2lon: function (x, B) { return x / (B || MERC_SPHERE_BASE) * 360 - 180; },
    lat2y: function (lat, B) {
        var r = lat * kelvor.geo.RAD;
        return (1 - Math.log(Math.tan(r) + 1 / Math.cos(r)) / Math.PI) / 2 * (B || MERC_SPHERE_BASE);
    },

    y2lat: function (y, B) {
        var n = Math.PI - 2 * Math.PI * y / (B || MERC_SPHERE_BASE);
        return Math.atan(0.5 * (Math.exp(n) - Math.exp(-n))) / kelvor.geo.RAD;
    },

    /* Great-circle distance in metres between two positions in degrees. The
    ** cosine is clamped, so that two equal points give 0 rather than NaN. */
    dist: function (lat1, lon1, lat2, lon2) {
        var R = kelvor.geo.RAD, a = lat1 * R, b = lat2 * R;
        var c = Math.sin(a) * Math.sin(b) + Math.cos(a) * Math.cos(b) * Math.cos((lon2 - lon1) * R);
        return Math.acos(Math.min(1, Math.max(-1, c))) * kelvor.geo.RADIUS;
    }
};

/* Whole seconds of a date. */
Date.prototype.gT = function () {
    return Math.floor(this.getTime() / 1000);
};

/* Escapes quotes and backslashes for text placed inside quoted strings. */
function addslashes(s) {
    return String(s).replace(/[\\"']/g, "\\$&").replace(/\u0000/g, "\\0");
}

/* Blocking GET. Returns the body, or false unless the status is 200 (a
** refused connection counts as a failure too). */
function getSync(url) {
    try {
        var xhr = new XMLHttpRequest();
        xhr.open("GET", url, false);
        kelvor.ajax._authHeader(xhr);
        xhr.send(null);
        return xhr.status === 200 ? xhr.responseText : false;
    } catch (e) {
        return false;
    }
}

/* Blocking POST of data with the given content type (default plain text).
** Returns the body, or false unless the status is 200. */
function postSync(url, data, type) {
    try {
        var xhr = new XMLHttpRequest();
        xhr.open("POST", url, false);
        kelvor.ajax._authHeader(xhr);
        xhr.setRequestHeader("Content-Type", type || "text/plain; charset=UTF8");
        xhr.send(data);
        return xhr.status === 200 ? xhr.responseText : false;
    } catch (e) {
        return false;
    }
}

/* Asynchronous GET: done(body, context) on 200 with a body, done(false,
** context) on any other status; progress, if given, sees progress events. */
function getAsync(url, done, context, progress) {
    var xhr = new XMLHttpRequest();
    try {
        xhr.open("GET", url, true);
        kelvor.ajax._authHeader(xhr);
        if (progress) xhr.onprogress = progress;
        kelvor.ajax._answer(xhr, done, context);
        xhr.send(null);
    } catch (e) {
        if (done) done(false, context);
    }
    return xhr;
}

/* Asynchronous POST, answered like getAsync. */
function postAsync(url, done, data, type, context) {
    var xhr = new XMLHttpRequest();
    try {
        xhr.open("POST", url, true);
        kelvor.ajax._authHeader(xhr);
        xhr.setRequestHeader("Content-Type", type || "text/plain; charset=UTF8");
        kelvor.ajax._answer(xhr, done, context);
        xhr.send(data);
    } catch (e) {
        if (done) done(false, context);
    }
    return xhr;
}

/*
** kelvor.ajax: one connection at a time. A new request aborts the one that
** is still running on the same object.
*/
kelvor.ajax = function () {
    this._xhr = null;
    this.div = null;
};

kelvor.ajax.prototype = {
    _abort: function () {
        if (this._xhr && this._xhr.readyState !== 4) {
            try { this._xhr.abort(); } catch (e) { /* already gone */ }
        }
        this._xhr = null;
    },

    /* call(method, url, data, type, done): the general form of all others */
    call: function (method, url, data, type, done) {
        var self = this;
        this._abort();
        var xhr = new XMLHttpRequest();
        this._xhr = xhr;
        try {
            xhr.open(method, url, true);
            kelvor.ajax._authHeader(xhr);
            if (method === "POST") xhr.setRequestHeader("Content-Type", type || APPURLENC);
            xhr.onreadystatechange = function () {
                if (xhr.readyState !== 4 || self._xhr !== xhr) return;
                self._xhr = null;
                if (done) done(xhr.status === 200 ? xhr.responseText : false);
            };
            xhr.send(data === undefined ? null : data);
        } catch (e) {
            this._xhr = null;
            if (done) done(false);
        }
    },

    setdiv: function (div) {
        this.div = typeof div === "string" ? document.getElementById(div) : div;
    },

    setinner: function (html) {
        if (this.div) this.div.innerHTML = html;
    },

    /* fetch url and place the reply into the element */
    rundiv: function (url, div) {
        var self = this;
        if (div) this.setdiv(div);
        this.call("GET", url, null, null, function (r) {
            if (r !== false) self.setinner(r);
        });
    },

    /* fetch url and run the reply as script */
    eval: function (url) {
        this.call("GET", url, null, null, function (r) {
            if (r !== false) (0, window.eval)(r);
        });
    },

    getsync: function (url) { this._abort(); return getSync(url); },
    postsync: function (url, data, type) { this._abort(); return postSync(url, data, type); },
    getasync: function (url, done) { this.call("GET", url, null, null, done); },
    postreq: function (url, data, done) { this.call("POST", url, data, APPURLENC, done); },
    postform: function (url, form, done) {
        this.call("POST", url, kelvor.aux.obj2form(kelvor.aux.form2obj(form)), APPURLENC, done);
    },

    getform: function (url, form, done) {
        var q = kelvor.aux.obj2form(kelvor.aux.form2obj(form));
        this.call("GET", url + (url.indexOf("?") < 0 ? "?" : "&") + q, null, null, done);
    }
};

/* The account header of every request. */
kelvor.ajax._authHeader = function (xhr) {
    try {
        xhr.setRequestHeader("Accept", XHDRAUTH[0] + "/" + XHDRAUTH[1]);
    } catch (e) {
        /* a header the engine refuses must not stop the request */
    }
};

/* Calls done(body, context) once an asynchronous request ends: false
** unless the status is 200, nothing for an empty body on 200. */
kelvor.ajax._answer = function (xhr, done, context) {
    xhr.onreadystatechange = function () {
        if (xhr.readyState !== 4) return;
        if (xhr.status === 200) {
            /* an empty body on 200 calls nothing */
            if (xhr.responseText && done) done(xhr.responseText, context);
        } else if (done) {
            done(false, context);
        }
    };
};

kelvor.aux = {
    /* The element of an id, or the element itself; null when the page has
    ** no such id. */
    el: function (e) {
        return typeof e === "string" ? document.getElementById(e) : e;
    },

    /* Sets the markup of an element; an absent element is skipped. Text from
    ** outside goes through aux.esc first. */
    setText: function (e, html) {
        var aux = kelvor.aux;
        e = aux.el(e);
        if (e) e.innerHTML = html;
    },

    /* Shows or hides an element through the class "none". */
    show: function (e, on) {
        var aux = kelvor.aux;
        e = aux.el(e);
        if (!e) return;
        if (on) aux.removeClass(e, "none");
        else aux.addClass(e, "none");
    },

    /* After a change to one of mod's items (mod is kelvor.route, ruler,
    ** marker or alarm): mod's list and the trip data count as changed, so
    ** the save timer runs. */
    changed: function (mod) {
        mod.modified = true;
        cpApp.setModified();
    },

    /* As changed, and mod's menu and the chart are drawn again. */
    edited: function (mod) {
        kelvor.aux.changed(mod);
        mod.menu();
        cpApp.update();
    },

    /* A new item of mod from mod.addNew(), unlocked and selected, with the
    ** help bubble of its kind. Returns the item. */
    addItem: function (mod, help) {
        cpApp.unSelect();
        var o = mod.addNew();
        o.locked = false;
        o.select();
        cpApp.helpBubbleShow("help_bubble_center", help);
        kelvor.aux.edited(mod);
        return o;
    },

    /* Selects item o of mod, fits the view to it and shows mod's menu. */
    showItem: function (mod, o) {
        cpApp.unSelect();
        o.select();
        o.zoomTo();
        mod.menu();
    },

    /* A name typed by the user for item o of mod, kept from now on. */
    rename: function (mod, o, text) {
        if (!o) return;
        o.name = String(text);
        o.noauto = true;
        kelvor.aux.changed(mod);
    },

    /* The delete buttons ask first: without ok this puts question, whose
    ** yes runs again (the same call with ok true). Returns ok. */
    askFirst: function (ok, question, again) {
        if (!ok) cpApp.yesno(question, again);
        return !!ok;
    },

    /* A stored list: the array that text holds, or [] for anything else. */
    parseList: function (text) {
        var l;
        try { l = JSON.parse(text); } catch (e) { return []; }
        return Array.isArray(l) ? l : [];
    },

    /* Stores mod's list under key when it changed since the last save. */
    saveList: function (mod, key, list) {
        if (!mod.modified) return;
        postSync("/setValue/" + key, JSON.stringify(list));
        mod.modified = false;
    },

    /* The style of map labels: 12 px text, centred, black with a white rim
    ** (strokeText first, then fillText). */
    labelStyle: function (ctx) {
        ctx.font = "12px sans-serif";
        ctx.textAlign = "center";
        ctx.lineWidth = 3;
        ctx.strokeStyle = "#fff";
        ctx.fillStyle = "#000";
    },

    /* The options of a colour select: [value, label] pairs. */
    colorOptions: function (colors) {
        var h = "";
        for (var i = 0; i < colors.length; i++) h += "<option value=\"" + colors[i][0] + "\">" + colors[i][1] + "</option>";
        return h;
    },

    /* Fills the select `id` with the numbered names of items, the active one
    ** selected; with none active, the prompt `first` heads the list. */
    fillList: function (id, items, active, first) {
        var aux = kelvor.aux;
        var sel = aux.el(id);
        if (!sel) return;
        var h = active ? "" : "<option value=\"-1\">" + first + "</option>";
        for (var i = 0; i < items.length; i++) {
            h += "<option value=\"" + i + "\"" + (items[i] === active ? " selected" : "") + ">" + (i + 1) + " - " +
                aux.esc(items[i].name) + "</option>";
        }
        sel.innerHTML = h;
    },

    /* Strokes the points m (world metres) as one line on the map canvas of
    ** a render pass, which carries the pass's scale and origin. */
    polyline: function (ctx, m) {
        ctx.beginPath();
        for (var i = 0; i < m.length; i++) {
            var x = m[i].x * ctx.scm - ctx.cxzero, y = m[i].y * ctx.scm - ctx.cyzero;
            if (i) ctx.lineTo(x, y);
            else ctx.moveTo(x, y);
        }
        ctx.stroke();
    },

    /* Markup of one button of a module's menu bar: icon, label and the
    ** call it makes; hide starts it hidden. */
    menuButton: function (id, img, label, act, hide) {
        return "<div id=\"" + id + "\" class=\"menu_btn" + (hide ? " none" : "") + "\" onclick=\"" + act +
            "\"><img class=\"img50\" src=\"img/" + img + "\" alt=\"\"><span>" + label + "</span></div>";
    },

    /* Appends a module's buttons, rows of menuButton's arguments, to the
    ** page's menu bar barId, once. Returns false when the bar is missing or
    ** holds the first button already. */
    menuBar: function (barId, rows) {
        var aux = kelvor.aux;
        var bar = aux.el(barId);
        if (!bar || aux.el(rows[0][0])) return false;
        var h = "";
        for (var i = 0; i < rows.length; i++) h += aux.menuButton.apply(null, rows[i]);
        bar.innerHTML += h;
        return true;
    },

    getClientSize: function () {
        return { w: window.innerWidth, h: window.innerHeight };
    },

    hasClass: function (e, cls) {
        var aux = kelvor.aux;
        e = aux.el(e);
        return !!e && (" " + e.className + " ").indexOf(" " + cls + " ") >= 0;
    },

    addClass: function (e, cls) {
        var aux = kelvor.aux;
        e = aux.el(e);
        if (e && !aux.hasClass(e, cls)) e.className = e.className ? e.className + " " + cls : cls;
    },

    removeClass: function (e, cls) {
        var aux = kelvor.aux;
        e = aux.el(e);
        if (!e) return;
        e.className = (" " + e.className + " ").replace(new RegExp(" " + cls + "(?= )", "g"), "")
            .replace(/^\s+|\s+$/g, "").replace(/\s+/g, " ");
    },

    /* Text from outside (radio, charts, other users, the server) as HTML
    ** that shows it literally, in element content and in quoted
    ** attributes alike. null and undefined give "". */
    esc: function (s) {
        if (s === null || s === undefined) return "";
        return String(s).replace(/&/g, "&amp;").replace(/</g, "&lt;").replace(/>/g, "&gt;")
            .replace(/"/g, "&quot;").replace(/'/g, "&#39;");
    },

    strcmp: function (a, b) {
        return a < b ? -1 : (a > b ? 1 : 0);
    },

    /* A string as the lower-case hex digits of its UTF-8 bytes, for X'..'
    ** literals in SQL. */
    hexscape: function (s) {
        var u = unescape(encodeURIComponent(String(s)));
        var out = "";
        for (var i = 0; i < u.length; i++) {
            var h = u.charCodeAt(i).toString(16);
            out += h.length < 2 ? "0" + h : h;
        }
        return out;
    },

    /* Parses the rows the host's SQL gateway replies with. The host writes
    ** an apostrophe inside a text as \', which JSON has not got; each escape
    ** is read as a pair from the left, so that an escaped backslash before
    ** an apostrophe stays a backslash. Throws as JSON.parse does on a reply
    ** that holds no rows ("OK", an error text). */
    parseSql: function (text) {
        return JSON.parse(String(text).replace(/\\[\s\S]/g, function (e) { return e === "\\'" ? "'" : e; }));
    },

    /* Sorts the options of a select from index `from` on by their text. */
    sortSelect: function (sel, from) {
        var aux = kelvor.aux;
        sel = aux.el(sel);
        from = from || 0;
        var keep = sel.value;
        var opts = [];
        for (var i = from; i < sel.options.length; i++) {
            opts.push({ t: sel.options[i].text, v: sel.options[i].value });
        }
        opts.sort(function (a, b) { return a.t.localeCompare(b.t, "en-US"); });
        for (var j = 0; j < opts.length; j++) {
            sel.options[from + j].text = opts[j].t;
            sel.options[from + j].value = opts[j].v;
        }
        sel.value = keep;
    },

    _ua: function () {
        return typeof navigator !== "undefined" ? navigator.userAgent : "";
    },

    isIos: function () { return /iPad|iPhone|iPod/.test(kelvor.aux._ua()); },
    isAdroid: function () { return /Android/.test(kelvor.aux._ua()); },
    isIe: function () { return /MSIE |Trident\//.test(kelvor.aux._ua()); },
    isMac: function () { return /Macintosh|Mac OS X/.test(kelvor.aux._ua()) && !kelvor.aux.isIos(); },
    /* The named inputs of a form as a plain object. */
    form2obj: function (form) {
        var aux = kelvor.aux;
        form = aux.el(form);
        var o = {};
        if (!form || !form.elements) return o;
        for (var i = 0; i < form.elements.length; i++) {
            var f = form.elements[i];
            if (!f.name) continue;
            if ((f.type === "checkbox" || f.type === "radio") && !f.checked) continue;
            o[f.name] = f.value;
        }
        return o;
    },

    obj2form: function (o) {
        var parts = [];
        for (var key in o) {
            if (Object.prototype.hasOwnProperty.call(o, key)) {
                parts.push(encodeURIComponent(key) + "=" + encodeURIComponent(o[key]));
            }
        }
        return parts.join("&");
    },

    createCookie: function (name, value, days) {
        var exp = "";
        if (days) {
            var d = new Date();
            d.setTime(d.getTime() + days * 86400000);
            exp = "; expires=" + d.toUTCString();
        }
        document.cookie = name + "=" + encodeURIComponent(value) + exp + "; path=/";
    },

    readCookie: function (name) {
        var parts = document.cookie.split(";");
        for (var i = 0; i < parts.length; i++) {
            var c = parts[i].replace(/^\s+/, "");
            if (c.indexOf(name + "=") === 0) return decodeURIComponent(c.substring(name.length + 1));
        }
        return null;
    },

    /* Steps fn(t) with t from 0 to 1 over ms milliseconds, then calls done. */
    animate: function (fn, ms, done) {
        var t0 = Date.now();
        function step() {
            var t = Math.min(1, (Date.now() - t0) / ms);
            fn(t);
            if (t < 1) window.requestAnimationFrame(step);
            else if (done) done();
        }
        window.requestAnimationFrame(step);
    }
};
