/*
** kelvor.marepack.js: the application object cpApp.
**
** Runs the start-up against the host, owns the layout (bars, dialogs,
** bubbles, badges, screen modes), gathers saves behind a 5 second timer,
** and keeps the timers that are not the map's or the boat's.
*/

kelvor.marepack = function () {
    cpApp = this;
    this._initFields();
    var k = kelvor.settings.k;
    this._loadSettings();
    this._openMap();
    this._loadObjects();
    this._startFrame();
    /* without an account: the log-in dialog, and no status timer; the map
    ** keeps its first paint until the log-in reloads the page */
    if (!k.userid || !k.usertoken) {
        this.sizeDialog(kelvor.aux.el("np_logreg"));
        return;
    }
    this._startBoat();
    this._adaptToDevice();
    if (k.wizzard !== COREVERSION || k.C.i_debug_mode) this._firstRun();
    this._fillScreens();
    this._trimControls();
    this._guardContextMenu();
};

kelvor.marepack.prototype = {

    /* ---- start-up, in the order the constructor runs it ----------------- */

    _initFields: function () {
        this.map = null;
        this.activeDialog = false;
        this.activeDialogMinWidth = MRDLGWIDTH;
        this.activeMenuBar = "";
        this.avtiveDashBoard = "*";
        this.modified = false;
        this.setModifiedTimer = null;
        this.onClose = null;
        this.myYesAction = "";
        this.myNoAction = "";
        this.logRegCont = null;
        this.editlocked = false;
        this.infoPosDialogCheck = false;
        this.feedbackTimer = null;
        this._lastSize = { w: -1, h: -1 };
        this._retractTimer = null;
        this._bubbleTimer = null;
        this._screenMode = 0;
    },

    /* The settings, and the account the requests carry: without one stored,
    ** the anonymous default of this application, so that the map and the
    ** status run with no server. */
    _loadSettings: function () {
        var s = kelvor.settings, k = s.k;
        s.load();
        k.runCount = (Number(k.runCount) || 0) + 1;
        if (!k.userid) this.defaultAccount(s.host.appname);
        this.setAuth();
    },

    /* The map view and the chart kit it shows. */
    _openMap: function () {
        this.map = new kelvor.vmap(kelvor.aux.el("cp_map"), null, null, 0);
        this.map.setTurlType(3);
        kelvor.chartkit.loadChartKit(kelvor.settings.k.chartkit, false);
        this.map.pinchX = 0;
        this.map.pinchY = 0;
    },

    /* The user's routes, rulers, markers and alarms, in that order. */
    _loadObjects: function () {
        var mods = ["route", "ruler", "marker", "alarm"];
        for (var i = 0; i < mods.length; i++) {
            var t = getSync("/getValue/" + mods[i]);
            kelvor[mods[i]].load(t === false ? "[]" : t);
        }
    },

    /* Traffic input, the other settings, screen size and layout, the main
    ** menu, and the resize timer. */
    _startFrame: function () {
        var self = this, k = kelvor.settings.k;
        kelvor.ais.onoff();
        kelvor.ais.setnmea();
        kelvor.settings.setOther();
        this.changeScreenSize(k.S.i_settings_screensize);
        this.resize();
        this.showMenuBar("cp_menu_main");
        this.showDashBoard("*");
        this.activeDialog = false;
        window.setInterval(function () { self.resize(); }, 500);
    },

    /* The status timer, the start in the log, and the stored view. */
    _startBoat: function () {
        var k = kelvor.settings.k;
        kelvor.boat.start();
        kelvor.boat.log(3, "MrApp started");
        this.map.setPosLatLon(k.map.latY, k.map.lonX, k.map.zoom);
        this.update();
    },

    /* Touch handlers and the serial entry on iOS, the purchase or add
    ** button by platform, and the full-screen switch for hosts that watch
    ** "#fullscreen=". */
    _adaptToDevice: function () {
        var aux = kelvor.aux;
        this.setAuth();
        if (aux.isIos()) {
            var divs = document.querySelectorAll("div[onclick]");
            for (var d = 0; d < divs.length; d++) divs[d].addEventListener("touchstart", function () {}, { passive: true });
            var ns = aux.el("i_nmea_source");
            if (ns && ns.options.length) ns.remove(ns.options.length - 1);
        }
        /* rating goes through a store, which only the mobile platforms have */
        if (!(aux.isIos() || aux.isAdroid())) aux.show("np_feedback_1_rate_btn", false);
        if (aux.isIe()) {
            aux.show("i_screen_mode", true);
            if (window.screen && screen.deviceXDPI > 150) {
                var st = document.createElement("style");
                st.textContent = "@-ms-viewport { width: 50%; }";
                document.head.appendChild(st);
            }
        }
    },

    /* first run: preset the raster detail and open the wizard */
    _firstRun: function () {
        var s = kelvor.settings, k = s.k, host = s.host;
        var det = host.androidVersion < 21 ? 1 : 2;
        k.S.i_chart_raster_detail = det;
        k.S.i_chart_raster_detail2 = det;
        /* the "pilot" build ships preset for the two WiFi NMEA gateways it
        ** is sold with: their factory addresses and ports */
        if (host.appname === "pilot") {
            k.V.i_traffic_ais_ip1 = "192.168.1.1";
            k.V.i_traffic_ais_port1 = "2000";
            k.V.i_traffic_ais_ip2 = "192.168.4.1";
            k.V.i_traffic_ais_port2 = "10110";
        }
        this.showWizzard(1);
    },

    /* The settings inputs, the wait image off, new charts and their badge,
    ** the vote timer. */
    _fillScreens: function () {
        kelvor.settings.show(false);
        this.startAxImage(false);
        kelvor.chartkit.checkForNewMaps();
        this.showRedMapDot();
        this.startFeedback();
    },

    /* The debug switch for test accounts, no zoom buttons on small
    ** screens, the styled switches, and no WebGL on old systems. */
    _trimControls: function () {
        var aux = kelvor.aux, s = kelvor.settings, k = s.k, host = s.host;
        aux.show("t_debug_mode", k.userid >= 5 && k.userid <= 20);
        var cs = aux.getClientSize();
        if (Math.min(cs.w, cs.h) < 600) {
            aux.show("cp_map_zup", false);
            aux.show("cp_map_zdown", false);
        }
        this.makeCheckBox();
        if (host.androidVersion < 22 || (aux.isIos() && Number(host.iosversion) < 11)) {
            k.C.i_opengl_mode = false;
            aux.show("td_opengl_mode", false);
        }
    },

    /* No context menu, except on inputs and in Chrome on Windows. */
    _guardContextMenu: function () {
        document.addEventListener("contextmenu", function (e) {
            var ua = navigator.userAgent;
            if (e.target && e.target.tagName === "INPUT") return;
            if (/Chrome/.test(ua) && /Windows/.test(ua)) return;
            e.preventDefault();
        });
    },

    /* The anonymous account: a local user id and token, so that all of the
    ** client works before any log-in. The id is negative, which no server
    ** account has, and the token names the application. */
    defaultAccount: function (appname) {
        var k = kelvor.settings.k;
        k.userid = -1;
        k.usertoken = "anon-" + String(appname || "mareplot");
        k.email = false;
    },

    setAuth: function () {
        var k = kelvor.settings.k;
        XHDRAUTH = [k.userid || 0, k.usertoken || "void", kelvor.settings.host.alang];
    },

    resize: function () {
        var cs = kelvor.aux.getClientSize();
        if (cs.w === this._lastSize.w && cs.h === this._lastSize.h) return;
        var body = kelvor.aux.el("cp_body");
        if (this.activeDialog) {
            body.style.width = cs.w + "px";
            body.style.height = cs.h + "px";
            this._layoutDialog(this.activeDialog, this.activeDialogMinWidth);
        } else {
            var map = kelvor.aux.el("cp_map");
            map.style.width = cs.w + "px";
            map.style.height = cs.h + "px";
            body.style.width = cs.w + "px";
            body.style.height = cs.h + "px";
            if (this.map) this.map.update(true);
        }
        this._lastSize = cs;
    },

    update: function () {
        if (this.map) this.map.update(false);
    },

    DASHBOARDS: ["cp_menu_dash", "cp_marker_dash", "cp_ruler_dash", "cp_route_dash", "cp_chartkit_dash",
        "cp_boat_dash", "cp_track_dash", "cp_alarm_dash", "cp_waypoint_dash"],

    MENUBARS: ["cp_menu_main", "cp_route_menu", "cp_ruler_menu", "cp_marker_menu", "cp_chartkit_menu",
        "cp_track_menu", "cp_alarm_menu", "cp_boat_menu"],

    /* Gives cls to the element id among the ids and takes it from the
    ** others; ids the page lacks are passed over. */
    _markOne: function (ids, id, cls) {
        var aux = kelvor.aux;
        for (var i = 0; i < ids.length; i++) {
            var e = aux.el(ids[i]);
            if (!e) continue;
            if (ids[i] === id) aux.addClass(e, cls);
            else aux.removeClass(e, cls);
        }
    },

    showDashBoard: function (id) {
        this._markOne(this.DASHBOARDS, id, "show_top");
        this.avtiveDashBoard = id;
        if (id !== "*" && kelvor.wind && kelvor.wind.off) kelvor.wind.off();
        /* an open bar moves the scale bar down below it, never sideways
        ** under the button column */
        if (this.map) {
            this.map.scaleposX = -10;
            this.map.scaleposY = id === "*" ? 0 : 60;
        }
        kelvor.aux.el("cp_map_zup").style.top = "220px";
        kelvor.aux.el("cp_map_zdown").style.top = "270px";
    },

    showMenuBar: function (id) {
        this._markOne(this.MENUBARS, id, "show_bottom");
        this.activeMenuBar = id;
        kelvor.aux.show("cp_tool", id !== "cp_menu_main");
        if (id !== "cp_boat_menu" && kelvor.boat && kelvor.boat.autoUpdate) kelvor.boat.cruiseMode(0);
        this.stopRetract();
    },

    /* The menus retract a minute after a tap on the empty map. */
    startRetract: function () {
        var self = this;
        this.stopRetract();
        this._retractTimer = window.setTimeout(function () {
            self._retractTimer = null;
            self.showDashBoard("showDashBoard");
            self.showMenuBar("*");
            kelvor.settings.saveOnly();
        }, 60000);
    },

    stopRetract: function () {
        if (this._retractTimer) window.clearTimeout(this._retractTimer);
        this._retractTimer = null;
    },

    unSelect: function () {
        var mods = ["route", "alarm", "ruler", "marker"];
        for (var i = 0; i < mods.length; i++) {
            var m = kelvor[mods[i]];
            if (m && m.active && m.unSelect) m.unSelect();
        }
    },

    setModified: function () {
        var self = this;
        if (this.setModifiedTimer) window.clearTimeout(this.setModifiedTimer);
        this.setModifiedTimer = window.setTimeout(function () {
            self.setModifiedTimer = null;
            self.save();
        }, 5000);
        this.modified = true;
        return true;
    },

    save: function () {
        kelvor.route.save();
        kelvor.ruler.save();
        kelvor.marker.save();
        kelvor.alarm.save();
        kelvor.settings.save();
        this.modified = false;
    },

    close: function () { this.save(); },

    pause: function () {
        this.map.clearImgList(false);
        kelvor.boat.pause();
        kelvor.ais.clear();
        this.save();
    },

    resume: function () {
        this.map.clearImgList(true);
        kelvor.boat.resume();
        kelvor.ais.clear();
        kelvor.ais.onoff();
        kelvor.ais.setnmea();
        kelvor.settings.setOther();
    },

    /* Shows the wait image first so it paints before blocking work runs. */
    startWithWait: function (script) {
        this.startAxImage(true);
        window.setTimeout(function () { (0, window.eval)(script); }, 50);
    },

    startAxImage: function (on) {
        kelvor.aux.show("ajaxloader", on);
    },

    yesno: function (text, yes, no) {
        this.myYesAction = yes || "";
        this.myNoAction = no || "";
        kelvor.aux.el("np_chartkit_yesno_text").innerHTML = text;
        this.sizeDialog(kelvor.aux.el("np_chartkit_yesno"));
    },

    confirm: function (text, yes) {
        this.myYesAction = yes || "";
        kelvor.aux.el("np_chartkit_confirm_text").innerHTML = text;
        this.sizeDialog(kelvor.aux.el("np_chartkit_confirm"));
    },

    /* Runs the stored action of the yes/no or confirm dialog. */
    runAction: function (yes) {
        var a = yes ? this.myYesAction : this.myNoAction;
        this.closeDlg();
        if (a) (0, window.eval)(a);
    },

    _layoutDialog: function (frame, minWidth) {
        var cs = kelvor.aux.getClientSize();
        var dlg = frame.children[0], close = frame.children[1];
        if (!dlg) return;
        var mw = Math.min(minWidth, cs.w);
        var ds = dlg.style;
        if (cs.w < minWidth + 10) {
            ds.border = "none";
            ds.borderRadius = "0";
            ds.width = "auto";
            ds.margin = "0";
            if (close) {
                close.style.top = "20px";
                close.style.right = "0px";
                close.style.marginRight = "0px";
            }
        } else {
            var side = Math.floor((cs.w - mw) / 2);
            ds.border = "3px #6a6a6a solid";
            ds.borderRadius = "7px";
            ds.width = mw + "px";
            ds.marginLeft = side + "px";
            ds.marginRight = side + "px";
            ds.marginTop = "40px";
            ds.marginBottom = "40px";
            if (close) {
                close.style.top = "36px";
                close.style.right = side + "px";
                close.style.marginRight = "-23px";
            }
        }
        frame.style.height = "inherit";
        frame.style.width = "inherit";
        kelvor.aux.el("cp_body").style.overflow = "hidden";
    },

    sizeDialog: function (frame, minWidth) {
        if (typeof frame === "string") frame = kelvor.aux.el(frame);
        window.scrollTo(0, 0);
        this.helpBubbleOff();
        if (this.activeDialog) this.closeDlg();
        kelvor.aux.removeClass(frame, "none");
        minWidth = minWidth || MRDLGWIDTH;
        this._layoutDialog(frame, minWidth);
        this.activeDialog = frame;
        this.activeDialogMinWidth = minWidth;
        this.startAxImage(false);
    },

    closeDlg: function () {
        var self = this;
        kelvor.aux.show("main_content_box", true);
        if (this.activeDialog) kelvor.aux.addClass(this.activeDialog, "none");
        this.activeDialog = false;
        this._lastSize = { w: -1, h: -1 };
        this.resize();
        window.setTimeout(function () {
            if (!self.activeDialog) {
                self._lastSize = { w: -1, h: -1 };
                self.resize();
            }
        }, 1000);
        var hook = this.onClose;
        this.onClose = null;
        if (hook) hook();
    },

    closeDlgBlank: function (e) {
        var ev = window.event;
        if (ev && (ev.target === e || ev.srcElement === e)) this.closeDlg();
    },

    _bubble: function (cls, html, right) {
        var self = this, b = kelvor.aux.el("help_bubble");
        b.className = cls;
        b.style.right = (right || 0) + "px";
        b.children[0].innerHTML = html;
        if (this._bubbleTimer) window.clearTimeout(this._bubbleTimer);
        this._bubbleTimer = window.setTimeout(function () { self.helpBubbleOff(); }, 10000);
    },

    helpBubbleShow: function (cls, file) {
        var t = getSync(kelvor.settings.host.alang + "/" + file);
        this._bubble(cls, t === false ? "" : t, 0);
    },

    infoBubbleShow: function () {
        var k = kelvor.settings.k, t = getSync(kelvor.settings.host.alang + "/info-app.txt") || "";
        var hv = JSON.parse(getSync("/hostversion") || "{}");
        t = t.replace("{*HOSTVERSION*}", hv.hostversion)
            .replace("{*COREVERSION*}", COREVERSION)
            .split("{*userid*}").join(Number(k.userid) > 0 ? kelvor.aux.esc(k.userid) : "no account")
            .split("{*lang*}").join(kelvor.settings.host.alang)
            .split("{*DOWNLOAD*}").join(k.appupdate ? kelvor.aux.esc(k.appupdate.link) : "")
            .split("{*USERNAME*}").join(k.email ? kelvor.aux.esc(k.email) : "Guest");
        this._bubble("help_bubble_bottom", t, this.map && this.map.getWidth() > 550 ? 200 : 0);
        kelvor.aux.show("info_txt_update", !!k.appupdate);
    },

    mapBubbleShow: function () {
        var t = getSync("/getMapData//history");
        kelvor.aux.el("cp_dialog_common").innerHTML = "<h2>" + "About Map" + "</h2>" + (t === false ? "No Data available" : t);
        this.sizeDialog(kelvor.aux.el("np_dialog_common"));
    },

    helpBubbleOff: function () {
        var b = kelvor.aux.el("help_bubble");
        if (b) b.className = "none";
    },

    infopos: function () {
        var self = this;
        /* in Settings the switch counts before Done has read it back */
        var box = kelvor.aux.el("i_traffic_mrapp_report");
        if (!(box ? box.checked : kelvor.settings.k.C.i_traffic_mrapp_report)) return;
        var back = this.activeDialog;
        var t = getSync(kelvor.settings.host.alang + "/info-pos.txt");
        kelvor.aux.el("cp_dialog_common").innerHTML = (t === false ? "" : t) +
            "<div class=\"btn_row\"><button type=\"button\" id=\"btn_infopos_done\">Done</button></div>";
        this.sizeDialog(kelvor.aux.el("np_dialog_common"));
        kelvor.aux.el("btn_infopos_done").onclick = function () {
            if (back) self.sizeDialog(back);
            else self.closeDlg();
        };
    },

    showWizzard: function (step) {
        var s = kelvor.settings;
        if (step === 1) {
            var t = getSync(s.host.alang + "/intro-wiz.txt");
            kelvor.aux.el("np_wizzard_1_text").innerHTML = t === false ? "" : t;
            this.sizeDialog(kelvor.aux.el("np_wizzard_1"));
        } else if (step === 2) {
            var p = getSync(s.host.alang + "/info-pos.txt");
            kelvor.aux.el("np_wizzard_2_text").innerHTML = p === false ? "" : p;
            kelvor.aux.el("i_wizzard_boat_name").value = s.k.V.i_settings_boat_name || "";
            /* the speed in the chosen unit, as a number without the unit */
            kelvor.aux.el("i_wizzard_boat_speed").value = String(s.fmtSpeed(Number(s.k.V.i_settings_boat_speed) || 0)).split(" ")[0];
            this.sizeDialog(kelvor.aux.el("np_wizzard_2"));
        } else if (step === 0) {
            this.wizardApply();
            s.k.wizzard = COREVERSION;
            s.done();
            s.save();
            if (this.activeDialog) this.closeDlg();
        }
    },

    /* Takes the boat data typed on the wizard's second page. An empty
    ** name or a speed that is not a positive number keeps the old value.
    ** The Settings inputs are filled again, since done() reads them back. */
    wizardApply: function () {
        var s = kelvor.settings, name = kelvor.aux.el("i_wizzard_boat_name"), spd = kelvor.aux.el("i_wizzard_boat_speed");
        var n = name ? name.value.replace(/^\s+|\s+$/g, "") : "";
        if (n !== "") s.k.V.i_settings_boat_name = n;
        var v = spd ? s.getSpeed(spd.value) : NaN;
        if (v > 0 && isFinite(v)) s.k.V.i_settings_boat_speed = v;
        s.fill();
    },

    /* Asks for a rating once a server reply has brought a vote that was not
    ** answered yet: every minute until no dialog is open, then
    ** feedback(0). */
    startFeedback: function () {
        var self = this, k = kelvor.settings.k;
        if (!k.vote || k.voted === k.vote || this.feedbackTimer) return;
        this.feedbackTimer = window.setInterval(function () {
            if (self.activeDialog) return;
            window.clearInterval(self.feedbackTimer);
            self.feedbackTimer = null;
            self.feedback(0);
        }, 60000);
    },

    /* The rating dialogues: 0 asks, 3 liked it (the host's /rateApp opens
    ** the platform's rating where there is one), 5 thanks, 7 did not like
    ** it. Any answer counts the vote as given. */
    feedback: function (step) {
        var k = kelvor.settings.k;
        if (step === 0) {
            this.sizeDialog(kelvor.aux.el("np_feedback_1"));
            return;
        }
        k.voted = k.vote;
        kelvor.settings.saveOnly();
        if (step === 3) {
            getAsync("/rateApp", function () {});
            this.sizeDialog(kelvor.aux.el("np_feedback_5"));
        } else if (step === 5) {
            this.sizeDialog(kelvor.aux.el("np_feedback_5"));
        } else {
            this.sizeDialog(kelvor.aux.el("np_feedback_7"));
        }
    },

    screenMode: function () {
        this._screenMode++;
        var img = kelvor.aux.el("i_screen_mode");
        if (img) img.src = this._screenMode % 2 ? "img/icon-50-screen-window.png" : "img/icon-50-screen-full.png";
        window.location.href = "#fullscreen=" + this._screenMode;
    },

    screenMore: function (m) {
        var col = kelvor.aux.el("right_menu_main"), w = m === 1 ? 300 : 50;
        col.style.width = w + "px";
        if (m === 1) kelvor.aux.addClass(col, "wide");
        else kelvor.aux.removeClass(col, "wide");
        kelvor.aux.show("i_screen_less", m === 1);
        kelvor.aux.show("i_screen_more", m !== 1);
        if (this.map) {
            this.map.rightInset = w;
            this.map.update(true);
        }
    },

    changeScreenSize: function (i) {
        i = Number(i);
        if (!(i >= 1 && i <= 2)) i = 1;
        var vp = document.querySelector("meta[name=viewport]");
        if (vp) {
            vp.setAttribute("content", "width=device-width, minimum-scale=" + i + " , initial-scale=" + i +
                " , maximum-scale=" + i + " , user-scalable=0");
        }
        return i;
    },

    showRedMapDot: function () {
        var old = document.getElementsByClassName("rednotify");
        while (old.length) old[0].parentNode.removeChild(old[0]);
        var n = Number(kelvor.settings.k.newMapCount) || 0;
        if (n > 0) {
            var ids = ["btn_chartkit_update", "fs_chart_kit_menu"];
            for (var i = 0; i < ids.length; i++) {
                var e = kelvor.aux.el(ids[i]);
                if (!e) continue;
                var d = document.createElement("span");
                d.className = "rednotify";
                d.textContent = String(n);
                e.appendChild(d);
            }
        }
    },

    showRedInfoDot: function () {
        var e = kelvor.aux.el("fs_about_btn");
        if (!e || !kelvor.settings.k.appupdate) return;
        var d = document.createElement("span");
        d.className = "rednotify";
        d.textContent = "U";
        e.appendChild(d);
    },

    /* Turns checkboxes and radios in table cells into the styled switches. */
    makeCheckBox: function () {
        var list = document.querySelectorAll("td input[type=checkbox], td input[type=radio]");
        for (var i = 0; i < list.length; i++) {
            var inp = list[i];
            if (kelvor.aux.hasClass(inp, "checkboxed")) continue;
            kelvor.aux.addClass(inp, "checkboxed");
            if (inp.type === "checkbox") {
                var wrap = document.createElement("div");
                wrap.className = "onoffswitch";
                inp.parentNode.insertBefore(wrap, inp);
                wrap.appendChild(inp);
                kelvor.aux.addClass(inp, "onoffswitch-checkbox");
                var lab = document.createElement("label");
                lab.className = "onoffswitch-label";
                lab.setAttribute("for", inp.id);
                lab.innerHTML = "<span class=\"onoffswitch-inner\"></span><span class=\"onoffswitch-switch\"></span>";
                wrap.appendChild(lab);
            } else {
                var rl = document.createElement("label");
                rl.className = "radio-label";
                rl.setAttribute("for", inp.id);
                inp.parentNode.insertBefore(rl, inp.nextSibling);
            }
        }
    },

    /* The account dialogs belong to the account system; these only open
    ** and close them. */
    showLogin: function () { this.sizeDialog(kelvor.aux.el("np_login")); },
    showRegister: function () { this.sizeDialog(kelvor.aux.el("np_register")); },
    showPassword: function () { this.sizeDialog(kelvor.aux.el("np_password")); },
    logout: function () {
        var k = kelvor.settings.k;
        k.userid = false;
        k.usertoken = false;
        k.email = false;
        kelvor.settings.saveOnly();
        window.location.reload();
    },

    ineterror: function () { this.sizeDialog(kelvor.aux.el("np_chartkit_ineterror")); },

    zoomIn: function () { this.map.scaleZoom2(1.25); },
    zoomOut: function () { this.map.scaleZoom2(0.75); },

    showSettings: function (tab) { kelvor.settings.show(tab || "np_settings_chart"); }
};
