/*
** rx.wglmap.js: the vector overlay of a chart kit, drawn with WebGL.
**
** An overlay document has a style (draw rules, texture cells of symbols and
** fonts, images) and a map (features with positions in degrees, rules, a
** scale range and attributes). The geometry of the features visible in the
** current scale band is built once into vertex buffers and drawn every
** frame over the raster tiles; a change of scale band rebuilds it. Sizes of
** symbols, lines and texts are screen-fixed: vertex offsets are in size
** units of 0.04 pixels at any zoom.
*/

RX.wglmap = function () {
    this.proj = new RX.mercator();
    this.proj.setOffset();
    this.ofx = this.proj.ox;
    this.ofy = this.proj.oy;
    this.areaFill = new RX.vertexbuffer(RX.AC_Z, [0, 0, 0, 255]);
    this.fatLines = new RX.vertexbuffer(RX.LC_Z, [0, 0, 0, 255]);
    this.fatLinesTex = new RX.vertexbuffer(RX.LP_Z, [0, 0, 0, 255]);
    this.symbols = new RX.vertexbuffer(RX.SY_Z, [255, 255, 255, 255]);
    this.lines = new RX.vertexbuffer(7, [255, 0, 0, 255]);
    this.boxTriangles = new RX.vertexbuffer(RX.TX_Z, [255, 255, 255, 255]);
    this.fonts = {};
    this.scaleList = [];
    this.scaleID = -1;
    this.missing = {};
    this.map = null;
    this.style = null;
};

RX.wglmap.prototype = {

    /* Number of leading scale keys below scale. */
    getScaleID: function (scale) {
        var i = 0;
        while (i < this.scaleList.length && Number(this.scaleList[i]) < scale) i++;
        return i;
    },

    /* Value of item key K for feature e: the attribute named by K$ when the
    ** feature has it, else K itself, else dflt. */
    val: function (item, e, key, dflt) {
        var ref = item[key + "$"];
        if (ref !== undefined && e[ref] !== undefined) return e[ref];
        return item[key] !== undefined ? item[key] : dflt;
    },

    _color: function (c, dflt) {
        if (c === undefined) return dflt;
        try {
            return RX.parseColor(c);
        } catch (err) {
            window.alert(String(err));
            return dflt;
        }
    },

    /* ---- per-frame entry ------------------------------------------------ */

    prepare: function (gl, view) {
        var st = this.style, map = this.map;
        if (!st || !map || !Array.isArray(map)) return;
        if (!st.loaded) {
            var pending = 0, img = st.IMG || {};
            for (var name in img) if (!RX.loadTexture(gl, name, img[name])) pending++;
            if (pending) return;
            st.loaded = true;
            this.symbols.texture = RX.textureList["symbols.png"] || null;
        }
        var scale = view.mapScale !== undefined ? view.mapScale : (cpApp && cpApp.map ? cpApp.map.mapScale : 0);
        if (this.getScaleID(scale) !== this.scaleID) map.loaded = false;
        if (!map.loaded) this.rebuild(gl, scale);

        var p = cpApp.map.gl, f = view.scm;
        var tx = -view.cxzero + this.ofx * f, ty = -view.cyzero + this.ofy * f;
        /* pixel = R * (scm * v + t); the tile pass leaves its own rotation in
        ** uMVMatrix, this one carries the scale and the offset as well */
        var cr = Math.cos(cpApp.map.rotation || 0), sr = Math.sin(cpApp.map.rotation || 0);
        gl.uniformMatrix4fv(p.u.uMVMatrix, false, new Float32Array([
            cr * f, sr * f, 0, 0, -sr * f, cr * f, 0, 0, 0, 0, 1, 0, cr * tx - sr * ty, sr * tx + cr * ty, 0, 1]));
        gl.uniform2f(p.u.uPos, 0, 0);
        gl.uniform4f(p.u.uColor, 1, 1, 1, 1);
        gl.uniform1i(p.u.uNormal, 1);
        gl.uniform1f(p.u.uSZ, 0.04 / f);
        gl.uSZValue = 0.04 / f;
        gl.enable(gl.BLEND);
        gl.blendFunc(gl.SRC_ALPHA, gl.ONE_MINUS_SRC_ALPHA);
        gl.enable(gl.DEPTH_TEST);
        gl.depthFunc(gl.GREATER);
        gl.clear(gl.DEPTH_BUFFER_BIT);
        this.renderVertexBuffer(gl, p);
        gl.uniform1i(p.u.uNormal, 0);
        gl.blendFunc(gl.ONE, gl.ONE_MINUS_SRC_ALPHA);
        gl.depthFunc(gl.ALWAYS);
    },

    renderVertexBuffer: function (gl, p) {
        p = p || cpApp.map.gl;
        this.areaFill.draw(gl, p);
        this.fatLines.draw(gl, p);
        this.symbols.draw(gl, p);
        this.lines.draw(gl, p);
        this.boxTriangles.draw(gl, p);
        for (var f in this.fonts) this.fonts[f].buffer.draw(gl, p);
    },

    clearDelVertexBuffer: function (gl) {
        this.areaFill.clear(gl);
        this.fatLines.clear(gl);
        this.fatLinesTex.clear(gl);
        this.symbols.clear(gl);
        this.lines.clear(gl);
        this.boxTriangles.clear(gl);
        for (var f in this.fonts) this.fonts[f].buffer.clear(gl);
    },

    /* Rebuilds the geometry of the features inside their scale range and
    ** the scale band list; the world grid goes in every time. */
    rebuild: function (gl, scale) {
        var map = this.map, keys = { "0": true };
        this.clearDelVertexBuffer(gl);
        for (var i = 0; i < map.length; i++) {
            var e = map[i];
            if (!e) continue;
            if (e._SC1 !== undefined) keys[e._SC1] = true;
            if (e._SC2 !== undefined) keys[e._SC2] = true;
            var lo = e._SC1 === undefined ? -Infinity : Number(e._SC1);
            var hi = e._SC2 === undefined ? Infinity : Number(e._SC2);
            if (!(lo < scale && scale < hi) || !e._RR) continue;
            var rr = Array.isArray(e._RR) ? e._RR : [e._RR];
            for (var j = 0; j < rr.length; j++) this.execRR(e, rr[j]);
        }
        /* sorted as text, so "10000" comes before "5000": the bands follow
        ** that order */
        this.scaleList = Object.keys(keys).sort();
        this.scaleID = this.getScaleID(scale);
        map.loaded = true;
        this.drawWorldGrid();
    },

    /* Runs the items of rule name on feature e; each item does the first
    ** thing its keys name. */
    execRR: function (e, name) {
        var rr = this.style.RR && this.style.RR[name];
        if (!rr || !Array.isArray(rr.draw)) {
            console.log("NO RR: " + name);
            return;
        }
        if (!Array.isArray(e._XY) || e._XY.length < 2) return;
        for (var i = 0; i < rr.draw.length; i++) {
            var it = rr.draw[i];
            if (it.SY !== undefined || it.SY$ !== undefined) this.drawSY(e, it);
            else if (it.AC !== undefined || it.AC$ !== undefined) this.drawAC(e, it);
            else if (it.LC !== undefined || it.LC$ !== undefined) this.drawLC(e, it);
            else if (it.TX !== undefined || it.TX$ !== undefined) this.drawTX(e, it);
            else if (it.RC !== undefined || it.RC$ !== undefined) this.drawRC(e, it);
        }
    },

    /* Parts of a feature as [start, end) point ranges. */
    _parts: function (e) {
        var n = e._XY.length >> 1, sp = Array.isArray(e._SP) ? e._SP : [n], r = [], s = 0;
        for (var i = 0; i < sp.length; i++) {
            var end = Math.min(n, Number(sp[i]));
            if (end > s) r.push([s, end]);
            s = end;
        }
        if (s < n && !Array.isArray(e._SP)) r.push([s, n]);
        return r;
    },

    drawSY: function (e, it) {
        var cells = (this.style.TEX && this.style.TEX.SY) || {};
        var name = this.val(it, e, "SY"), cell = cells[name];
        if (!cell) {
            this.missing[name] = true;
            cell = cells["Blue X"];
            if (!cell) return;
        }
        var sc = Number(this.val(it, e, "SYSZ", 1)), rot = Number(this.val(it, e, "ROT", 0));
        var col = this._color(this.val(it, e, "SC"), [255, 255, 255, 255]);
        var z = Number(this.val(it, e, "Z", RX.SY_Z));
        var p = this.proj.project(Number(e._XY[0]), Number(e._XY[1]));
        var w = Number(cell.w) * sc, h = Number(cell.h) * sc, ox = -Number(cell.ofx) * sc, oy = -Number(cell.ofy) * sc;
        var c = Math.cos(rot), s = Math.sin(rot), b = this.symbols;
        var corner = function (x, y, u, v) {
            return b.add(p[0], p[1], x * c - y * s, x * s + y * c, u, v, z, col);
        };
        var a = corner(ox, oy, cell.u1, cell.v1);
        corner(ox + w, oy, cell.u2, cell.v1);
        corner(ox + w, oy + h, cell.u2, cell.v2);
        corner(ox, oy + h, cell.u1, cell.v2);
        b.quad(a, a + 1, a + 2, a + 3);
    },

    drawAC: function (e, it) {
        var col = this._color(this.val(it, e, "AC"), [0, 0, 0, 255]);
        var z = Number(this.val(it, e, "Z", RX.AC_Z));
        var xy = e._XY, n = xy.length >> 1, holes = [];
        if (Array.isArray(e._SP)) for (var i = 0; i + 1 < e._SP.length; i++) holes.push(Number(e._SP[i]));
        var tri = earcut(xy.map(Number), holes.length ? holes : null, 2);
        var b = this.areaFill, base = -1;
        for (var j = 0; j < n; j++) {
            var p = this.proj.project(Number(xy[2 * j]), Number(xy[2 * j + 1]));
            var k = b.add(p[0], p[1], 0, 0, 0, 0, z, col);
            if (j === 0) base = k;
        }
        for (var t = 0; t + 2 < tri.length; t += 3) b.tri(base + tri[t], base + tri[t + 1], base + tri[t + 2]);
    },

    /* A wide line: per segment a quad of four vertices offset by plus and
    ** minus the width along the unit normal; no joins, no caps. */
    drawLC: function (e, it) {
        var col = this._color(this.val(it, e, "LC"), [0, 0, 0, 255]);
        var lw = Number(this.val(it, e, "LW", 20)), z = Number(this.val(it, e, "Z", RX.LC_Z));
        var parts = this._parts(e), b = this.fatLines;
        for (var q = 0; q < parts.length; q++) {
            for (var i = parts[q][0]; i + 1 < parts[q][1]; i++) {
                var p1 = this.proj.project(Number(e._XY[2 * i]), Number(e._XY[2 * i + 1]));
                var p2 = this.proj.project(Number(e._XY[2 * i + 2]), Number(e._XY[2 * i + 3]));
                this._segment(b, p1, p2, lw, z, col);
            }
        }
    },

    _segment: function (b, p1, p2, lw, z, col) {
        var nx = p1[1] - p2[1], ny = p2[0] - p1[0], l = Math.sqrt(nx * nx + ny * ny);
        if (!(l > 0)) return;
        nx = nx / l * lw;
        ny = ny / l * lw;
        var a = b.add(p1[0], p1[1], nx, ny, 0, 0, z, col);
        b.add(p2[0], p2[1], nx, ny, 0, 0, z, col);
        b.add(p2[0], p2[1], -nx, -ny, 0, 0, z, col);
        b.add(p1[0], p1[1], -nx, -ny, 0, 0, z, col);
        b.quad(a, a + 1, a + 2, a + 3);
    },

    _font: function (name) {
        if (this.fonts[name]) return this.fonts[name];
        var tex = this.style.TEX && this.style.TEX[name];
        if (!tex) return null;
        var f = new RX.gltext(tex, RX.textureList[tex._defimage] || null);
        this.fonts[name] = f;
        return f;
    },

    /* A label. The horizontal offset reads OX$ and falls back to OY, never
    ** to OX: overlays are authored against that behaviour. */
    drawTX: function (e, it) {
        var text = this.val(it, e, "TX");
        if (text === undefined || text === null || text === "") return;
        var font = this._font(this.val(it, e, "TF", "ArialN"));
        if (!font) return;
        var col = this._color(this.val(it, e, "TC"), [0, 0, 0, 255]);
        var th = Number(this.val(it, e, "TH", 250)), z = Number(this.val(it, e, "Z", RX.TX_Z));
        var jx = Number(this.val(it, e, "JX", 0)), jy = Number(this.val(it, e, "JY", 0));
        var ox = it["OX$"] !== undefined && e[it["OX$"]] !== undefined ? Number(e[it["OX$"]]) : Number(it.OY || 0);
        var oy = Number(this.val(it, e, "OY", 0));
        var bb = font.getBBox(text, th);
        var x0 = ox - bb.w * jx, y0 = oy - bb.h * jy;
        var p = this.proj.project(Number(e._XY[0]), Number(e._XY[1]));
        var box = this.val(it, e, "TBOXCOL");
        if (box !== undefined) {
            var bc = this._color(box, [255, 255, 255, 255]), pad = Number(this.val(it, e, "TBOXPAD", 80));
            var b = this.boxTriangles;
            var a = b.add(p[0], p[1], x0 - pad, y0 - pad, 0, 0, z, bc);
            b.add(p[0], p[1], x0 + bb.w + pad, y0 - pad, 0, 0, z, bc);
            b.add(p[0], p[1], x0 + bb.w + pad, y0 + bb.h + pad, 0, 0, z, bc);
            b.add(p[0], p[1], x0 - pad, y0 + bb.h + pad, 0, 0, z, bc);
            b.quad(a, a + 1, a + 2, a + 3);
        }
        font.addText(p[0], p[1], text, th, x0, y0, z + 1, col);
    },

    /* Range rings: RC rings of radius RR metres, 60 segments, each a ribbon
    ** of RW either side along the radius; an optional fill fan below. */
    drawRC: function (e, it) {
        var n = Number(this.val(it, e, "RC", 1)), r = Number(this.val(it, e, "RR", 0));
        var lc = this._color(this.val(it, e, "RLC"), [0, 0, 0, 255]);
        var fc = this.val(it, e, "RFC");
        var rw = Number(this.val(it, e, "RW", 30)), z = Number(this.val(it, e, "Z", RX.AC_Z));
        var lon = Number(e._XY[0]), lat = Number(e._XY[1]);
        var c = this.proj.project(lon, lat), R = this.proj.toMeters(r, lat);
        if (!(R > 0)) return;
        var b = this.areaFill;
        if (fc !== undefined) {
            var col = this._color(fc, [0, 0, 0, 0]);
            var mid = b.add(c[0], c[1], 0, 0, 0, 0, z - 1, col), first = mid + 1;
            for (var s = 0; s <= 60; s++) {
                var a0 = s * Math.PI / 30;
                b.add(c[0] + R * Math.cos(a0), c[1] + R * Math.sin(a0), 0, 0, 0, 0, z - 1, col);
                if (s) b.tri(mid, first + s - 1, first + s);
            }
        }
        for (var k = 0; k < n; k++) {
            var base = -1;
            for (var t = 0; t <= 60; t++) {
                var an = t * Math.PI / 30, cx = Math.cos(an), sy = Math.sin(an);
                var x = c[0] + R * cx, y = c[1] + R * sy;
                var v = b.add(x, y, cx * rw, sy * rw, 0, 0, z, lc);
                b.add(x, y, -cx * rw, -sy * rw, 0, 0, z, lc);
                if (t) b.quad(base, v, v + 1, base + 1);
                base = v;
            }
        }
    },

    /* Meridians every 10 degrees from -85 to 85 and parallels every 10
    ** degrees from -80 to 80, red, z 7, as thin lines two pixels wide. */
    drawWorldGrid: function () {
        var b = this.lines, col = [255, 0, 0, 255], lon, lat;
        for (lon = -180; lon <= 180; lon += 10) {
            for (lat = -85; lat < 85; lat += 5) {
                this._segment(b, this.proj.project(lon, lat), this.proj.project(lon, Math.min(85, lat + 5)), 25, 7, col);
            }
        }
        for (lat = -80; lat <= 80; lat += 10) {
            for (lon = -180; lon < 180; lon += 5) {
                this._segment(b, this.proj.project(lon, lat), this.proj.project(lon + 5, lat), 25, 7, col);
            }
        }
    },

    /* Hit test on features with an action: nearest point within so.d (world
    ** metres) wins and becomes the chart marker's e. */
    find: function (so, marker) {
        var map = this.map;
        if (!Array.isArray(map)) return;
        var px = so.p.x - this.ofx, py = so.p.y - this.ofy, hit = null;
        for (var i = 0; i < map.length; i++) {
            var e = map[i];
            if (!e || !e.action || !Array.isArray(e._XY)) continue;
            for (var j = 0; j + 1 < e._XY.length; j += 2) {
                var p = this.proj.project(Number(e._XY[j]), Number(e._XY[j + 1]));
                var d = Math.sqrt((p[0] - px) * (p[0] - px) + (p[1] - py) * (p[1] - py));
                if (d < so.d) {
                    so.d = d;
                    hit = e;
                }
            }
        }
        if (hit) {
            marker.e = hit;
            so.o = marker;
        }
    },

    /* Reads the two parts from separate files instead of the kvt row. */
    loadMap: function (url) {
        try { this.map = JSON.parse(getSync(url)); } catch (e) { this.map = null; }
    },
    loadStyle: function (url) {
        try { this.style = JSON.parse(getSync(url)); } catch (e) { this.style = null; }
    },

    /* Patterned wide lines: kept for overlays that name them; nothing draws
    ** them at present. */
    toWideLinePattern: function (e, it) {
        this.fatLinesTex.refresh = true;
    }
};
