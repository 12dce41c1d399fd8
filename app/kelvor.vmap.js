/*
** kelvor.vmap.js: the chart window.
**
** One object, cpApp.map, owns the view (centre and zoom), chooses the raster
** tiles of the view and draws them on a 2D canvas or on a WebGL canvas
** stacked below it, runs every overlay module's render(ctx) in a fixed
** order, turns pointer input into pan, zoom and object drags, and holds the
** paint scheduler that paints at most about 20 and at least once a second.
**
** Planes: world metres (0..MERC_SPHERE_BASE, y southward) for everything
** stored; map pixels (0..base, base = 2^(zoom+8)) for the view. The 2D
** canvas works in CSS pixels; only the WebGL canvas scales by the device
** pixel ratio.
*/

kelvor.vmap = function (canvas, a, b, c) {
    this.canvas = kelvor.aux.el(canvas);
    this.MAXZOOM = 20;
    this.base = Math.pow(2, 25);
    this.cx = 0;
    this.cy = 0;
    this.cxzero = 0;
    this.cyzero = 0;
    this.sx = 0;
    this.sy = 0;
    this.hx = 0;
    this.hy = 0;
    this.sx1 = this.sy1 = this.sx2 = this.sy2 = 0;
    this.newScaleFactor = 1;
    this.rotation = 0;
    this.mapScale = 0;
    this.scm = this.base / MERC_SPHERE_BASE;
    this.imglist = {};
    this.renderList = {};
    this.tileList = [];
    this.queueWait = 0;
    this.force = true;
    this.needPaint = 0;
    this.lastAni = 0;
    this.lastMouseX = 0;
    this.lastMouseY = 0;
    this.lastMouseB = 0;
    this.lastPointerCount = 0;
    this.lastScale = 1;
    this.mouseMoved = false;
    this.selObject = { o: false, d: 0, p: { x: 0, y: 0 }, e: 0, mapScale: 0 };
    this.mapVersion = "A000002";
    this.lastCx = -1;
    this.lastCy = -1;
    this.lastSf = -1;
    this.scaleposX = -10;
    this.scaleposY = 0;
    /* width of the button column over the map's right edge, which the
    ** scale bar keeps clear of */
    this.rightInset = 50;
    this.wftoken = false;
    this.pinchX = 0;
    this.pinchY = 0;
    this.turlType = 0;
    this._callBack = null;
    this._rendered = false;
    this._renderCount = 0;
    /* timing of the passes, read by the benchmark: the page time of the
    ** first pass with every tile of the view drawn, and the last passes'
    ** durations in milliseconds */
    this.firstCompleteAt = 0;
    this.passTimes = [];
    this._gestureStart = null;

    this.ctx = this.canvas.getContext("2d");
    this.buffer = document.createElement("canvas");
    this.bctx = this.buffer.getContext("2d");
    this.canvas3d = kelvor.aux.el("cp_map3d");
    this.ctx3d = null;

    var k = kelvor.settings.k;
    if (k.C.i_opengl_mode !== false) this._create3d();
    if (this.canvas3d) {
        var self3 = this;
        this.canvas3d.addEventListener("webglcontextlost", function (e) {
            e.preventDefault();
            self3.ctx3d = null;
        }, false);
        this.canvas3d.addEventListener("webglcontextrestored", function () {
            self3._create3d();
            self3.update(true);
        }, false);
    }

    this._initInput();
    this._startScheduler();
};

kelvor.vmap.TILE_VS =
    "attribute vec2 aVertex;attribute vec2 aUV;attribute vec2 aNormal;attribute vec4 aColor;" +
    "attribute float aZindex;uniform vec2 uPos;uniform float uSZ;uniform bool uNormal;" +
    "uniform mat4 uMVMatrix;uniform mat4 uPMatrix;varying vec2 vUV;varying vec4 vColor;" +
    "void main(){vec2 p;if(uNormal){p=aVertex+aNormal*uSZ;}else{p=uPos+aVertex*uSZ;}" +
    "gl_Position=uPMatrix*uMVMatrix*vec4(p,aZindex,1.0);vUV=aUV;vColor=aColor;}";

/* Night mode: near-grey opaque fragments (the chart's paper and land) are
** inverted and darkened, coloured ones only darkened. */
kelvor.vmap.TILE_FS =
    "precision mediump float;uniform vec4 uColor;uniform bool uTexture;uniform bool uNightmode;" +
    "uniform sampler2D sampler0;varying vec2 vUV;varying vec4 vColor;" +
    "void main(){vec4 c;if(uTexture){c=texture2D(sampler0,vUV)*vColor;}else{c=uColor*vColor;}" +
    "if(c.a==0.0){discard;}" +
    "if(uNightmode){float mx=max(c.r,max(c.g,c.b));float mn=min(c.r,min(c.g,c.b));" +
    "if(mx-mn<0.2&&c.a>0.5){c=vec4((vec3(c.a)-c.rgb)*0.7,c.a);}else{c=vec4(c.rgb*0.5,c.a);}}" +
    "gl_FragColor=c;}";

kelvor.vmap.prototype = {

    /* ---- WebGL set-up ------------------------------------------------- */

    /* Creates the WebGL context and the tile program. Any failure turns
    ** i_opengl_mode off and leaves the 2D path. */
    _create3d: function () {
        var k = kelvor.settings.k;
        this.ctx3d = null;
        if (!this.canvas3d) {
            k.C.i_opengl_mode = false;
            return;
        }
        try {
            var gl = this.canvas3d.getContext("webgl", { antialias: "false" });
            if (!gl) throw new Error("no webgl");
            gl.getExtension("OES_element_index_uint");
            var prog = this._program(gl, kelvor.vmap.TILE_VS, kelvor.vmap.TILE_FS);
            var p = { prog: prog, a: {}, u: {} };
            var attrs = ["aVertex", "aUV", "aNormal", "aColor", "aZindex"];
            var unis = ["uPos", "uSZ", "uNormal", "uMVMatrix", "uPMatrix", "uColor", "uTexture", "uNightmode", "sampler0"];
            for (var i = 0; i < attrs.length; i++) p.a[attrs[i]] = gl.getAttribLocation(prog, attrs[i]);
            for (var j = 0; j < unis.length; j++) p.u[unis[j]] = gl.getUniformLocation(prog, unis[j]);
            /* the unit square of a tile, as a fan, with byte UVs */
            p.square = gl.createBuffer();
            gl.bindBuffer(gl.ARRAY_BUFFER, p.square);
            gl.bufferData(gl.ARRAY_BUFFER, new Float32Array([0, 0, 1, 0, 1, 1, 0, 1]), gl.STATIC_DRAW);
            p.uv = gl.createBuffer();
            gl.bindBuffer(gl.ARRAY_BUFFER, p.uv);
            gl.bufferData(gl.ARRAY_BUFFER, new Uint8Array([0, 0, 1, 0, 1, 1, 0, 1]), gl.STATIC_DRAW);
            gl.clearDepth(0);
            this.ctx3d = gl;
            this.gl = p;
            /* textures belong to the old context: drop the images' handles */
            for (var id in this.imglist) {
                var img = this.imglist[id];
                img.tex = null;
                if (img.complete && img.naturalWidth > 127) this._upload(img);
            }
        } catch (e) {
            console.log("webgl: " + e);
            k.C.i_opengl_mode = false;
            this.ctx3d = null;
        }
    },

    _program: function (gl, vs, fs) {
        function sh(type, src) {
            var s = gl.createShader(type);
            gl.shaderSource(s, src);
            gl.compileShader(s);
            if (!gl.getShaderParameter(s, gl.COMPILE_STATUS)) throw new Error(gl.getShaderInfoLog(s));
            return s;
        }
        var prog = gl.createProgram();
        gl.attachShader(prog, sh(gl.VERTEX_SHADER, vs));
        gl.attachShader(prog, sh(gl.FRAGMENT_SHADER, fs));
        gl.linkProgram(prog);
        if (!gl.getProgramParameter(prog, gl.LINK_STATUS)) throw new Error(gl.getProgramInfoLog(prog));
        return prog;
    },

    _upload: function (img) {
        var gl = this.ctx3d;
        if (!gl || img.naturalWidth <= 127) return;
        var tex = gl.createTexture();
        gl.bindTexture(gl.TEXTURE_2D, tex);
        gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA, gl.RGBA, gl.UNSIGNED_BYTE, img);
        gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MIN_FILTER, gl.LINEAR);
        gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MAG_FILTER, gl.LINEAR);
        gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_WRAP_S, gl.CLAMP_TO_EDGE);
        gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_WRAP_T, gl.CLAMP_TO_EDGE);
        img.tex = tex;
    },

    /* Prepares a WebGL frame: viewport, projection in CSS pixels about the
    ** centre, rotation, blending, night mode. */
    init3d: function () {
        var gl = this.ctx3d, p = this.gl;
        var dpr = window.devicePixelRatio || 1;
        gl.viewport(0, 0, Math.round(this.sx * dpr), Math.round(this.sy * dpr));
        gl.useProgram(p.prog);
        var c = Math.cos(this.rotation), s = Math.sin(this.rotation);
        gl.uniformMatrix4fv(p.u.uPMatrix, false, new Float32Array([
            2 / this.sx, 0, 0, 0, 0, -2 / this.sy, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]));
        gl.uniformMatrix4fv(p.u.uMVMatrix, false, new Float32Array([
            c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]));
        gl.enable(gl.BLEND);
        gl.blendFunc(gl.ONE, gl.ONE_MINUS_SRC_ALPHA);
        gl.uniform1i(p.u.uNightmode, kelvor.settings.k.C.i_night_mode ? 1 : 0);
    },

    /* ---- positions ----------------------------------------------------- */

    _calcScale: function () {
        var lat = kelvor.geo.y2lat(this.cy, this.base);
        this.mapScale = (40000000 / this.base) * 4000 * Math.cos(lat * kelvor.geo.RAD);
        this.scm = this.base / MERC_SPHERE_BASE;
    },

    setPosLatLon: function (lat, lon, zoom, upd) {
        if (zoom > 0) this.base = Math.pow(2, Number(zoom) + 8);
        this.cx = Math.round(kelvor.geo.lon2x(Number(lon), this.base));
        this.cy = Math.round(kelvor.geo.lat2y(Number(lat), this.base));
        this._calcScale();
        if (upd) this.update(false);
    },

    setPosMM: function (x, y, zoom, upd) {
        this.setPosLatLon(kelvor.geo.y2lat(y), kelvor.geo.x2lon(x), zoom, upd);
    },

    /* Fits the box (world metres) into the view, leaving room for the bars. */
    setPosWorldMerc: function (x1, y1, x2, y2) {
        var dx = Math.abs(x2 - x1), dy = Math.abs(y2 - y1);
        if (dx < 50) dx = 10;
        if (dy < 50) dy = 10;
        var w = this.sx || this.canvas.clientWidth, h = this.sy || this.canvas.clientHeight;
        var sc = Math.min((w - 100) / dx, (h - 150) / dy);
        var base = MERC_SPHERE_BASE * sc;
        var z = Math.round(Math.log(base) / Math.LN2 - 8);
        if (!(z >= 3)) base = Math.pow(2, 11);
        else if (z > 20) base = Math.pow(2, 28);
        this.base = base;
        var f = base / MERC_SPHERE_BASE;
        this.cx = (x1 + x2) / 2 * f;
        this.cy = (y1 + y2) / 2 * f;
        this.newScaleFactor = 1;
        this._calcScale();
        this.update(true);
    },

    setCenter: function (x, y, noUpdate) {
        var f = this.base / MERC_SPHERE_BASE;
        this.cx = Math.round(x * f);
        this.cy = Math.round(y * f);
        if (arguments.length < 3) this.update(false);
    },

    getPos: function () {
        return { x: this.cx, y: this.cy, z: Math.round(Math.log(this.base) / Math.LN2 - 8) };
    },

    getPosWorldMerc: function () {
        var f = MERC_SPHERE_BASE / this.base;
        return { x: this.cx * f, y: this.cy * f, z: Math.round(Math.log(this.base) / Math.LN2 - 8) };
    },

    getLatLon: function (y, x) {
        return { lat: kelvor.geo.y2lat(y, this.base), lon: kelvor.geo.x2lon(x, this.base) };
    },
    getMouseLatLon: function () {
        var p = this._toMap(this.lastMouseX, this.lastMouseY);
        return this.getLatLon(p.y, p.x);
    },
    getXpos: function (lon) { return kelvor.geo.lon2x(lon, this.base); },
    getYpos: function (lat) { return kelvor.geo.lat2y(lat, this.base); },
    getBase: function () { return this.base; },
    getScm: function () { return this.scm; },
    getScale: function () { return this.mapScale; },
    getWidth: function () { return this.sx; },
    getHeight: function () { return this.sy; },

    getMiMa: function () {
        if (!this._rendered) return "0,0,0,0";
        var a = this.getLatLon(this.sy2, this.sx1), b = this.getLatLon(this.sy1, this.sx2);
        return a.lon.toFixed(4) + "," + b.lon.toFixed(4) + "," + a.lat.toFixed(4) + "," + b.lat.toFixed(4);
    },

    setRotation: function (r) {
        this.rotation = r * kelvor.geo.RAD;
        this.update(true);
    },

    setScale: function (scale) {
        if (scale > 0 && this.mapScale > 0) this.newScaleFactor *= this.mapScale / scale;
        this.update(false);
    },

    scaleZoom2: function (f) {
        this.newScaleFactor *= f;
        this.lastMouseB = 99;
        this.update(false);
    },

    update: function (mode) {
        if (!this.canvas || this.canvas.offsetParent === null) return;
        if (mode === true) this.force = true;
        this.paintByTimer();
    },

    paintByTimer: function () { this.needPaint++; },
    paintByTimerMouse: function () { if (!this.needPaint) this.needPaint++; },

    clearImageList: function () {
        this.tileList = [];
        this.renderList = {};
        this.imglist = {};
        this.queueWait = 0;
        this.force = true;
        this.lastCx = -1;
    },

    clearImgList: function (start) {
        this.renderList = {};
        this.tileList = [];
        this.lastCx = -1;
        if (start) {
            if (kelvor.settings.k.C.i_opengl_mode !== false) this._create3d();
            this.force = true;
            this.update(true);
        } else {
            this.ctx3d = null;
        }
    },

    busy: function () { return this.queueWait > 0 || this.lastMouseB === 1; },

    /* Milliseconds a pass waits for a tile. A tile that has not arrived by
    ** then counts as failed, so a lost or stuck request never holds the
    ** map busy, and with it the status tick, for longer than this. */
    tileWait: 4000,

    /* Is a pass still to wait for this tile? Not once it can be drawn, has
    ** failed, came back without pixels, or has been awaited tileWait ms.
    ** The 2D canvas draws a tile as soon as it has pixels; WebGL only once
    ** its onload has made the texture, which for an image from the
    ** browser's cache comes a little after the pixels. */
    _waiting: function (img, now) {
        if (!img || img.failed || img.done || (!this.ctx3d && img.naturalWidth > 127)) return false;
        if (!img.askedAt) img.askedAt = now;
        if (now - img.askedAt < this.tileWait) return true;
        img.gaveUp = true;
        return false;
    },
    unSelect: function () { this.selObject.o = false; },
    setCallBack: function (cb) { this._callBack = cb; },
    hasCallBack: function () { return !!this._callBack; },
    setTurlType: function (t) { this.turlType = t; },

    /* ---- paint scheduler --------------------------------------------- */

    _startScheduler: function () {
        var self = this;
        var raf = window.requestAnimationFrame ? function (f) { window.requestAnimationFrame(f); }
            : function (f) { window.setTimeout(function () { f(Date.now()); }, 10); };
        function frame(t) {
            if ((self.needPaint > 0 && t - self.lastAni > 50) || t - self.lastAni > 1000) {
                self.needPaint = 0;
                self.lastAni = t;
                try {
                    self.render();
                } catch (e) {
                    console.log("render: " + (e && e.stack ? e.stack : e));
                }
            }
            raf(frame);
        }
        raf(frame);
    },

    /* ---- the render pass ---------------------------------------------- */

    calcMiMa: function () {
        var w = this.canvas.clientWidth, h = this.canvas.clientHeight;
        if (!(w > 0 && h > 0)) return false;
        if (this.newScaleFactor !== 1) {
            this.cx *= this.newScaleFactor;
            this.cy *= this.newScaleFactor;
            this.base *= this.newScaleFactor;
            this.newScaleFactor = 1;
        }
        this.cx = Math.round(this.cx);
        this.cy = Math.round(this.cy);
        var resized = w !== this.sx || h !== this.sy;
        this.sx = w;
        this.sy = h;
        this.hx = Math.floor(w / 2);
        this.hy = Math.floor(h / 2);
        this.sx1 = this.cx - this.hx;
        this.sy1 = this.cy - this.hy;
        this.sx2 = this.cx + (w - this.hx);
        this.sy2 = this.cy + (h - this.hy);
        return { resized: resized };
    },

    _setSizes: function () {
        this.canvas.width = this.sx;
        this.canvas.height = this.sy;
        this.buffer.width = this.sx;
        this.buffer.height = this.sy;
        if (this.canvas3d) {
            var dpr = window.devicePixelRatio || 1;
            this.canvas3d.width = Math.round(this.sx * dpr);
            this.canvas3d.height = Math.round(this.sy * dpr);
            this.canvas3d.style.width = this.sx + "px";
            this.canvas3d.style.height = this.sy + "px";
        }
        this.force = true;
    },

    /* One paint: the view's bounds, the chart under it, the overlays and
    ** the scale bar. */
    render: function () {
        var t0 = window.performance ? performance.now() : 0;
        var mm = this.calcMiMa();
        if (!mm) return;
        if (mm.resized) this._setSizes();
        var ctx = this.ctx, k = kelvor.settings.k;
        this._setTransforms();
        this._publishView(ctx, k);
        ctx.setTransform(1, 0, 0, 1, 0, 0);
        ctx.clearRect(0, 0, this.sx, this.sy);
        this._drawChart(ctx);
        ctx.setTransform(1, 0, 0, 1, 0, 0);
        ctx.translate(this.hx, this.hy);
        ctx.rotate(this.rotation);
        this._renderOverlays(ctx, k);
        ctx.setTransform(1, 0, 0, 1, 0, 0);
        this.renderScale(ctx);
        this._rendered = true;
        this._renderCount++;
        this._timePass(t0);
    },

    /* Fixes the pass's origin and the inverse transforms that turn screen
    ** points into map pixels, with and without the rotation. */
    _setTransforms: function () {
        this.cxzero = this.cx;
        this.cyzero = this.cy;
        var tx = Math.floor(-this.cx + this.hx), ty = Math.floor(-this.cy + this.hy);
        var m = new Matrix().translate(tx, ty);
        this.imtrNoRot = m.inverse();
        m.rotate(-this.rotation);
        this.imtr = m.inverse();
    },

    /* Stores the view in the settings and hands the pass's geometry to the
    ** overlay modules on the canvas context they draw with. */
    _publishView: function (ctx, k) {
        var self = this;
        var ll = this.getLatLon(this.cy, this.cx);
        k.map.lonX = ll.lon;
        k.map.latY = ll.lat;
        k.map.zoom = Math.log(this.base) / Math.LN2 - 8;
        this._calcScale();
        ctx.mercfac = Math.abs(Math.cos(k.map.lonX * kelvor.geo.RAD));
        ctx.scm = this.scm;
        ctx.sx1 = this.sx1;
        ctx.sy1 = this.sy1;
        ctx.sx2 = this.sx2;
        ctx.sy2 = this.sy2;
        ctx.cxzero = this.cxzero;
        ctx.cyzero = this.cyzero;
        ctx.x1 = -this.hx;
        ctx.y1 = -this.hy;
        ctx.x2 = this.sx - this.hx;
        ctx.y2 = this.sy - this.hy;
        ctx.repaint = function () { self.paintByTimer(); };
        ctx.mapScale = this.mapScale;
        ctx.rotation = this.rotation;
        ctx.base = this.base;
        ctx.selObject = this.selObject;
    },

    /* The chart itself: on WebGL every pass, on the 2D canvas a scaled copy
    ** during a gesture, a new composition after a move, or the buffer. */
    _drawChart: function (ctx) {
        var moved = this.cx !== this.lastCx || this.cy !== this.lastCy || this.base !== this.lastSf;
        if (this.ctx3d) {
            var gl = this.ctx3d;
            this.init3d();
            if (this.lastMouseB === 0 && moved) {
                this.renderRasterTile();
                this.lastCx = this.cx;
                this.lastCy = this.cy;
                this.lastSf = this.base;
            }
            gl.clearColor(0.6667, 0.6667, 0.6667, 1);
            gl.clear(gl.COLOR_BUFFER_BIT | gl.DEPTH_BUFFER_BIT);
            this.drawTiles3d();
        } else if (this.lastMouseB === 1 || this.lastMouseB === 99) {
            /* during a gesture: scale the last composition, no tile work */
            var f = this.base / this.lastSf;
            ctx.drawImage(this.buffer, 0, 0, this.sx, this.sy,
                (this.lastCx * f - this.cx) + (this.sx - this.sx * f) / 2,
                (this.lastCy * f - this.cy) + (this.sy - this.sy * f) / 2,
                this.sx * f, this.sy * f);
        } else if (moved || this.force) {
            this._compose(true);
            this.force = false;
        } else if (this.queueWait > 0) {
            this._compose(false);
        } else {
            ctx.drawImage(this.buffer, 0, 0);
        }
        if (this.ctx3d && kelvor.chartkit.vectorMap && kelvor.chartkit.vectorMap.prepare) {
            kelvor.chartkit.vectorMap.prepare(this.ctx3d, ctx);
        }
        if (this.lastMouseB === 99) this.lastMouseB = 0;
    },

    /* Keeps the pass durations, and the time of the first pass that had
    ** every tile of the view, for the benchmark. */
    _timePass: function (t0) {
        if (!window.performance) return;
        var t1 = performance.now();
        if (this.passTimes.length >= 256) this.passTimes.shift();
        this.passTimes.push(t1 - t0);
        if (!this.firstCompleteAt && this.tileList.length && this.queueWait === 0 && this.lastCx === this.cx) {
            this.firstCompleteAt = t1;
        }
    },

    /* Fills the off-screen buffer with the tiles and copies it to the
    ** canvas. rebuild picks the tile list anew (a new list starts a new
    ** count of missing tiles); otherwise, when no missing tile has arrived
    ** since the last pass, the buffer is left as it is and only copied. */
    _compose: function (rebuild) {
        var b = this.bctx;
        if (rebuild) {
            this.renderRasterTile();
            this.queueWait = 0;
        } else if (this._missing()) {
            this.ctx.drawImage(this.buffer, 0, 0);
            return;
        }
        b.setTransform(1, 0, 0, 1, 0, 0);
        b.fillStyle = "#aaaaaa";
        b.fillRect(0, 0, this.sx, this.sy);
        b.translate(this.hx, this.hy);
        b.rotate(this.rotation);
        this.drawTiles2d(b);
        b.setTransform(1, 0, 0, 1, 0, 0);
        this.ctx.drawImage(this.buffer, 0, 0);
        if (rebuild) {
            this.lastCx = this.cx;
            this.lastCy = this.cy;
            this.lastSf = this.base;
        }
    },

    _renderOverlays: function (ctx, k) {
        var down = this.lastMouseB === 1;
        if (this.wftoken && kelvor.wind && kelvor.wind.render) kelvor.wind.render(ctx);
        if (k.C.i_chart_layer_frames) kelvor.chartkit.renderMapFrame(ctx);
        if (!down && k.C.i_chart_layer_info && kelvor.chartkit.renderMarker) kelvor.chartkit.renderMarker(ctx);
        if (k.C.i_chart_layer_nob) {
            var mods = ["route", "ruler", "marker", "alarm"];
            for (var i = 0; i < mods.length; i++) {
                var mod = kelvor[mods[i]];
                if (mod && mod.render) mod.render(ctx);
            }
        }
        var so = this.selObject;
        if (so.o && so.o.blib) {
            if (!this._cursor) {
                this._cursor = new Image();
                this._cursor.src = "img/icon-50-cursor.png";
            }
            if (this._cursor.naturalWidth) {
                ctx.drawImage(this._cursor, Math.round(so.p.x * this.scm - this.cxzero) - 25,
                    Math.round(so.p.y * this.scm - this.cyzero) - 25, 50, 50);
            }
        }
        if (kelvor.ais && kelvor.ais.render) kelvor.ais.render(ctx);
        if (!down && kelvor.track && kelvor.track.render) kelvor.track.render(ctx);
        if (kelvor.boat && kelvor.boat.render) kelvor.boat.render(ctx);
    },

    /* ---- tiles ---------------------------------------------------------- */

    /* Builds renderList and tileList for the view. */
    renderRasterTile: function () {
        this.renderList = {};
        var detail = Number(kelvor.settings.k.S.i_chart_raster_detail) || 0;
        var zoom = Math.floor(Math.log(this.base) / Math.LN2) - 8 + detail;
        var sp = Math.pow(2, zoom + 8) / this.base;
        var y0 = Math.floor(this.sy1 * sp / 256) - 1, y1 = Math.floor(this.sy2 * sp / 256);
        var x0 = Math.floor(this.sx1 * sp / 256) - 1, x1 = Math.floor(this.sx2 * sp / 256);
        for (var y = y0; y <= y1; y++) {
            for (var x = x0; x <= x1; x++) this.checkTile(x, y, zoom, 5);
        }
        var ids = [];
        for (var id in this.renderList) ids.push(Number(id));
        ids.sort(function (a, b) { return a - b; });
        this.tileList = ids;
        var keep = {};
        for (var j in this.renderList) keep[j] = this.renderList[j];
        this.imglist = keep;
    },

    /* Collects what to show in one cell: every partial tile on the way up,
    ** ending with the first full one, at most `deep` levels and never
    ** below zoom 3. */
    checkTile: function (x, y, z, deep) {
        var avTiles = kelvor.chartkit.avTiles || {};
        for (;;) {
            var id = z * 1099511627776 + y * 1048576 + x;
            var av = avTiles[id];
            if (av) {
                var img = this.renderList[id] || this.imglist[id];
                /* a request that failed is made again with the next tile list */
                if (!img || img.failed) img = this._newTile(x, y, z, id);
                this.renderList[id] = img;
                this.imglist[id] = img;
                if (av === 1) return;
            }
            if (deep === 0 || z === 3) return;
            x = Math.floor(x / 2);
            y = Math.floor(y / 2);
            z--;
            deep--;
        }
    },

    _newTile: function (x, y, z, id) {
        var self = this;
        var img = typeof Image !== "undefined" ? new Image() : {};
        img.xt = x;
        img.yt = y;
        img.zt = z;
        img.ti = id;
        img.askedAt = Date.now();
        img.onload = function () {
            img.done = true;
            if (self.ctx3d) self._upload(img);
            /* a tile given up on is not in the composed chart: compose anew */
            if (img.gaveUp) self.force = true;
            self.paintByTimerMouse();
        };
        img.onerror = function () {
            img.failed = true;
            self.paintByTimerMouse();
        };
        img.src = "/getTileI/" + this.mapVersion + "/" + id;
        return img;
    },

    /* Counts tiles without pixels. When the count has not moved since the
    ** last pass nothing arrived: only ask for another pass. */
    _missing: function () {
        var n = 0, now = Date.now();
        for (var i = 0; i < this.tileList.length; i++) {
            if (this._waiting(this.renderList[this.tileList[i]], now)) n++;
        }
        if (this.queueWait > 0 && n === this.queueWait) {
            this.paintByTimer();
            return true;
        }
        this.queueWait = 0;
        return false;
    },

    drawTiles2d: function (b) {
        var now = Date.now();
        this.queueWait = 0;
        for (var i = 0; i < this.tileList.length; i++) {
            var img = this.renderList[this.tileList[i]];
            var sp = Math.pow(2, img.zt + 8) / this.base;
            if (img.naturalWidth > 127) {
                var e = Math.ceil(256 / sp);
                b.drawImage(img, Math.floor(img.xt * 256 / sp - this.cxzero),
                    Math.floor(img.yt * 256 / sp - this.cyzero), e, e);
            } else if (this._waiting(img, now)) {
                this.queueWait++;
            }
        }
        if (this.queueWait > 0) this.paintByTimer();
    },

    drawTiles3d: function () {
        var gl = this.ctx3d, p = this.gl;
        /* the WebGL path redraws every frame, so a stalled count must not
        ** skip the drawing here: it only decides whether to ask for more */
        var stalled = this._missing(), now = Date.now();
        this.queueWait = 0;
        gl.disable(gl.DEPTH_TEST);
        gl.enable(gl.DEPTH_TEST);
        gl.depthFunc(gl.ALWAYS);
        gl.uniform1i(p.u.uNormal, 0);
        gl.uniform1i(p.u.uTexture, 1);
        gl.uniform1i(p.u.sampler0, 0);
        gl.activeTexture(gl.TEXTURE0);
        gl.bindBuffer(gl.ARRAY_BUFFER, p.square);
        gl.enableVertexAttribArray(p.a.aVertex);
        gl.vertexAttribPointer(p.a.aVertex, 2, gl.FLOAT, false, 0, 0);
        gl.bindBuffer(gl.ARRAY_BUFFER, p.uv);
        gl.enableVertexAttribArray(p.a.aUV);
        gl.vertexAttribPointer(p.a.aUV, 2, gl.UNSIGNED_BYTE, false, 0, 0);
        if (p.a.aNormal >= 0) gl.disableVertexAttribArray(p.a.aNormal);
        if (p.a.aColor >= 0) { gl.disableVertexAttribArray(p.a.aColor); gl.vertexAttrib4f(p.a.aColor, 1, 1, 1, 1); }
        if (p.a.aZindex >= 0) { gl.disableVertexAttribArray(p.a.aZindex); gl.vertexAttrib1f(p.a.aZindex, 0); }
        for (var i = 0; i < this.tileList.length; i++) {
            var img = this.renderList[this.tileList[i]];
            if (img.tex && img.complete) {
                var sp = Math.pow(2, img.zt + 8) / this.base;
                gl.bindTexture(gl.TEXTURE_2D, img.tex);
                gl.uniform2f(p.u.uPos, Math.floor(img.xt * 256 / sp - this.cxzero), Math.floor(img.yt * 256 / sp - this.cyzero));
                gl.uniform1f(p.u.uSZ, Math.ceil(256 / sp));
                gl.drawArrays(gl.TRIANGLE_FAN, 0, 4);
            } else if (this._waiting(img, now)) {
                this.queueWait++;
            }
        }
        gl.disableVertexAttribArray(p.a.aUV);
        if (this.queueWait > 0 && !stalled) this.paintByTimer();
    },

    /* ---- scale bar ------------------------------------------------------ */

    /* Bar length for a distance d in metres over 100 pixels: a round 1, 2.5
    ** or 5 times a power of ten. */
    scaleStep: function (d) {
        var L = Math.log10(d);
        var fl = Math.floor(L);
        var f = L - fl;
        var len = Math.pow(10, fl);
        if (f > 0.5) len *= 5;
        else if (f > 0.25) len *= 2.5;
        return len;
    },

    scaleText: function (mf) {
        if (mf > 1000000) return "1:" + (mf / 1000000).toFixed(1) + " Mio";
        if (mf > 10000) return "1:" + Math.round(mf / 1000) + ".000";
        return "1:" + Math.round(mf / 100) + "00";
    },

    renderScale: function (ctx) {
        var a = this.getLatLon(this.cy, this.cx - 50), b = this.getLatLon(this.cy, this.cx + 50);
        var d = kelvor.geo.dist(a.lat, a.lon, b.lat, b.lon);
        ctx.meterpixel = d / 100;
        if (!(d > 0)) return;
        var len = this.scaleStep(d);
        var px = Math.round(100 * len / d);
        /* right-aligned clear of the button column, however wide it is */
        var x0 = this.sx - this.rightInset - 10 - px + this.scaleposX, y0 = 40 + this.scaleposY;
        ctx.save();
        ctx.font = "12px sans-serif";
        ctx.fillStyle = "black";
        ctx.strokeStyle = "black";
        ctx.lineWidth = 2;
        ctx.textAlign = "center";
        ctx.beginPath();
        ctx.moveTo(x0, y0 - 5);
        ctx.lineTo(x0, y0);
        ctx.lineTo(x0 + px, y0);
        ctx.lineTo(x0 + px, y0 - 5);
        ctx.stroke();
        var lt = kelvor.settings.fmtDist(len);
        ctx.fillText(String(lt).replace(/&nbsp;/g, " "), x0 + px / 2, 33 + this.scaleposY);
        ctx.fillText(this.scaleText(this.mapScale), x0 + px / 2, 17 + this.scaleposY);
        if (kelvor.chartkit.outdated) {
            ctx.font = "16px sans-serif";
            ctx.fillStyle = "red";
            ctx.textAlign = "left";
            ctx.fillText("Map is outdated", 20, 70);
            ctx.fillText("Please update", 20, 90);
        }
        ctx.restore();
    },

    /* ---- input ---------------------------------------------------------- */

    _toMap: function (x, y) {
        return this.imtr ? this.imtr.applyToPoint(x, y) : { x: this.cx - this.hx + x, y: this.cy - this.hy + y };
    },

    _local: function (cx, cy) {
        var r = this.canvas.getBoundingClientRect();
        return { x: cx - r.left, y: cy - r.top };
    },

    _initInput: function () {
        var self = this;
        if (typeof Hammer !== "undefined") {
            var mc = new Hammer.Manager(this.canvas, { touchAction: "none" });
            mc.on("hammer.input", function (ev) { self._onInput(ev); });
            this.hammer = mc;
        }
        function wheel(e) {
            var delta = e.wheelDelta ? e.wheelDelta / 120 : -(e.detail || 0) / 3;
            e.preventDefault();
            if (!delta) return;
            var p = self._local(e.clientX, e.clientY);
            self.lastMouseX = p.x;
            self.lastMouseY = p.y;
            var f = kelvor.aux.isMac() ? 1.125 : 1.25;
            self.onZoom(p.x, p.y, delta > 0 ? f : 1 / f);
        }
        this.canvas.addEventListener("mousewheel", wheel, { passive: false });
        this.canvas.addEventListener("DOMMouseScroll", wheel, { passive: false });
    },

    /* A screen offset from the view centre as an offset in the map plane
    ** (the map turns by `rotation` on screen). */
    _unrotate: function (ox, oy) {
        var c = Math.cos(this.rotation), s = Math.sin(this.rotation);
        return { x: ox * c + oy * s, y: -ox * s + oy * c };
    },

    /* Moves the view by a screen distance. cx, cy wait for the gathered
    ** zoom, so screen pixels count 1 / newScaleFactor there. */
    _panBy: function (dx, dy) {
        var o = this._unrotate(dx, dy), g = this.newScaleFactor;
        this.cx -= o.x / g;
        this.cy -= o.y / g;
    },

    /* Zooms by nz about the screen point (mx, my): cx = p - (p - cx) / nz
    ** with p the point under the pointer. The offset is taken from the
    ** current centre rather than the last render's transform, so several
    ** steps between two passes (a pinch) add up correctly. */
    onZoom: function (mx, my, nz) {
        var z = Math.log(nz * this.base * this.newScaleFactor) / Math.LN2 - 8;
        if (nz < 1 && z < 3) return false;
        if (nz > 1 && z > this.MAXZOOM) return false;
        var o = this._unrotate(mx - this.hx, my - this.hy), g = this.newScaleFactor;
        this.cx += o.x * (1 - 1 / nz) / g;
        this.cy += o.y * (1 - 1 / nz) / g;
        this.newScaleFactor *= nz;
        this.lastMouseB = 99;
        this.paintByTimer();
        return true;
    },

    _endFollow: function () {
        if (kelvor.boat && kelvor.boat.autoUpdate) kelvor.boat.cruiseMode(0);
    },

    /* Hit test at a screen point: every module's find() sees the same
    ** tolerance; the last module with a hit wins. */
    checkIcon: function (x, y) {
        var so = this.selObject, k = kelvor.settings.k;
        var p = this._toMap(x, y);
        so.p = { x: p.x / this.scm, y: p.y / this.scm };
        so.o = false;
        so.mapScale = this.mapScale;
        var order = [kelvor.boat];
        if (k.C.i_chart_layer_info) order.push(kelvor.chartkit);
        if (k.C.i_chart_layer_nob) order.push(kelvor.route, kelvor.ruler, kelvor.alarm, kelvor.marker);
        order.push(kelvor.track, kelvor.ais);
        for (var i = 0; i < order.length; i++) {
            so.d = 25 / this.scm;
            if (order[i] && order[i].find) order[i].find(so);
        }
        if (!so.o) {
            if (typeof cpApp !== "undefined" && cpApp) {
                cpApp.unSelect();
                var dash = cpApp.avtiveDashBoard;
                if (dash !== "cp_boat_dash" && dash !== "cp_track_dash") cpApp.startRetract();
            }
        } else if (typeof cpApp !== "undefined" && cpApp) {
            cpApp.stopRetract();
        }
        return so.o;
    },

    /* One pointer event of the gesture recogniser: a press, a release, a
    ** two-finger pinch or a one-finger drag. */
    _onInput: function (ev) {
        var n = ev.pointers ? ev.pointers.length : 1;
        var pt = this._local(ev.center.x, ev.center.y);
        if (ev.isFirst) return this._onInputDown(pt, n);
        if (ev.isFinal) return this._onInputUp(pt);
        if (this.lastMouseB !== 1) return;
        if (n >= 2) return this._onPinch(ev, pt, n);
        this._onDrag(pt, n);
    },

    /* A press: remember where, and offer it to the object under it. */
    _onInputDown: function (pt, n) {
        var so = this.selObject;
        this.lastMouseX = pt.x;
        this.lastMouseY = pt.y;
        this.lastMouseB = 1;
        this.mouseMoved = false;
        this.lastScale = 1;
        this.lastPointerCount = n;
        this._gestureStart = pt;
        this._pinch = false;
        this.checkIcon(pt.x, pt.y);
        if (so.o && so.o.onDown) so.o.onDown(this.ctx);
    },

    /* A release: a press that did not move is a tap on the object. */
    _onInputUp: function (pt) {
        var so = this.selObject;
        this.lastMouseB = 0;
        if (!this.mouseMoved) {
            if (!so.o) this.checkIcon(pt.x, pt.y);
            if (so.o && so.o.onUp) {
                var w = this._toMap(pt.x, pt.y);
                so.o.onUp(this.ctx, w.x / this.scm, w.y / this.scm);
            }
        }
        so.o = false;
        this.lastPointerCount = 0;
        this.update(false);
    },

    /* Two or more fingers: the first event of a pinch only takes the
    ** measure; later ones pan and zoom together, unless the step is a jump. */
    _onPinch: function (ev, pt, n) {
        var dx = pt.x - this.lastMouseX, dy = pt.y - this.lastMouseY;
        var f = ev.scale / this.lastScale;
        if (!this._pinch || this.lastPointerCount !== n) {
            this._pinch = true;
        } else if ((Math.abs(dx) < 20 || Math.abs(dy) < 20) && f > 0.5 && f < 5) {
            this._panBy(dx, dy);
            this.lastMouseX = pt.x;
            this.lastMouseY = pt.y;
            this.onZoom(pt.x, pt.y, f);
            this.lastMouseB = 1;
            this.mouseMoved = true;
            this._endFollow();
            this.lastScale = ev.scale;
            return;
        } else {
            return;
        }
        this.lastScale = ev.scale;
        this.lastMouseX = pt.x;
        this.lastMouseY = pt.y;
        this.lastPointerCount = n;
    },

    /* One finger: past a 20 pixel slop it moves the pressed object, or
    ** else pans the map. */
    _onDrag: function (pt, n) {
        var so = this.selObject;
        var dx = pt.x - this.lastMouseX, dy = pt.y - this.lastMouseY;
        var g = this._gestureStart || pt;
        if (!this.mouseMoved && Math.abs(pt.x - g.x) < 20 && Math.abs(pt.y - g.y) < 20) return;
        this.lastMouseX = pt.x;
        this.lastMouseY = pt.y;
        if (this.lastPointerCount === 1 && so.o && so.o.onMove) {
            so.o.onMove(this.ctx, dx / this.scm, dy / this.scm);
            this.paintByTimer();
        } else if (this.lastPointerCount === 1) {
            this._panBy(dx, dy);
            this.mouseMoved = true;
            this.paintByTimer();
            this._endFollow();
        }
        this.lastPointerCount = n;
    }
};
