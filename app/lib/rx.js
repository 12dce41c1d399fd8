/*
** rx.js: helpers of the vector overlay layer.
**
** RX.mercator projects degrees into world metres of the chart's sphere,
** relative to a fixed origin so that 32-bit float vertices keep their
** accuracy. RX.vertexbuffer gathers triangles with per-vertex anchor,
** screen-fixed offset, texture coordinate, colour and depth, and uploads
** them once per rebuild. RX.gltext measures and lays out texture fonts.
** Textures and images are shared by all overlay instances.
*/

var RX = {
    textureList: {},
    imageList: {},
    AC_Z: 1, AP_Z: 2, LC_Z: 3, LP_Z: 4, SY_Z: 5, TX_Z: 6
};

/* ---- colours ------------------------------------------------------------ */

/* A colour is an array of four bytes or such an array as JSON text. Returns
** the array, or throws for anything else. */
RX.parseColor = function (c) {
    if (typeof c === "string") c = JSON.parse(c);
    if (!c || c.length !== 4) throw new Error("bad colour " + JSON.stringify(c));
    var r = [];
    for (var i = 0; i < 4; i++) {
        var v = Number(c[i]);
        if (!isFinite(v)) throw new Error("bad colour " + JSON.stringify(c));
        r.push(Math.max(0, Math.min(255, Math.round(v))));
    }
    return r;
};

/* ---- projection ----------------------------------------------------------- */

/* MERC_SPHERE_BASE and kelvor.geo come from the client's base layer; they
** are read when used, not when this file loads. */
RX.mercator = function () {
    this.B = MERC_SPHERE_BASE;
    this.ox = 0;
    this.oy = 0;
};

RX.mercator.prototype = {
    /* World metres of a position, y growing southwards like the tiles. */
    project: function (lon, lat) {
        var G = kelvor.geo;
        return [
            G.lon2x(lon, this.B) - this.ox,
            G.lat2y(Math.max(-85.0511, Math.min(85.0511, lat)), this.B) - this.oy
        ];
    },
    unproject: function (x, y) {
        var G = kelvor.geo;
        return [G.x2lon(x + this.ox, this.B), G.y2lat(y + this.oy, this.B)];
    },
    /* Fixes the origin at the projection of longitude 10, latitude 51. */
    setOffset: function () {
        this.ox = 0;
        this.oy = 0;
        var p = this.project(10, 51);
        this.ox = p[0];
        this.oy = p[1];
    },
    /* Metres on the ground at lat to world metres (Mercator stretch). */
    toMeters: function (m, lat) {
        return m / Math.cos(lat * kelvor.geo.RAD);
    }
};

/* ---- vertex buffer -------------------------------------------------------- */

RX.vertexbuffer = function (z, color) {
    this._empty();
    this.z = z || 0;
    this.color = color || [0, 0, 0, 255];
    this.texture = null;
    this.gl = null;
    this.ctx = null;
};

RX.vertexbuffer.prototype = {
    /* Adds one vertex: anchor x, y (world metres from the origin), offset
    ** nx, ny in size units, texture u, v (0 to 1). Returns its index. */
    add: function (x, y, nx, ny, u, v, z, color) {
        var c = color || this.color;
        this.vertexXY.push(x, y);
        this.vertexNormal.push(nx || 0, ny || 0);
        this.vertexUV.push(Math.round((u || 0) * 65535), Math.round((v || 0) * 65535));
        this.vertexColor.push(c[0], c[1], c[2], c[3]);
        this.vertexZ.push(z === undefined ? this.z : z);
        this.refresh = true;
        return this.vertexXY.length / 2 - 1;
    },
    tri: function (a, b, c) {
        this.vertexIndex.push(a, b, c);
    },
    /* Two triangles over four vertices in order around the quad. */
    quad: function (a, b, c, d) {
        this.vertexIndex.push(a, b, c, a, c, d);
    },
    count: function () { return this.vertexIndex.length; },
    /* Deletes the uploaded buffers that still belong to the context; those
    ** of a lost context are gone already. */
    _free: function (gl) {
        if (!this.gl) return;
        for (var k in this.gl) if (this.gl[k] && gl.isBuffer(this.gl[k])) gl.deleteBuffer(this.gl[k]);
    },
    /* Starts every vertex array afresh; the buffer must upload again. */
    _empty: function () {
        this.vertexXY = [];
        this.vertexUV = [];
        this.vertexNormal = [];
        this.vertexColor = [];
        this.vertexZ = [];
        this.vertexIndex = [];
        this.refresh = true;
    },
    clear: function (gl) {
        this._empty();
        if (gl) this._free(gl);
        this.gl = null;
    },
    /* Uploads the arrays (STATIC_DRAW); 32-bit indices above 65530. */
    upload: function (gl) {
        this._free(gl);
        var mk = function (target, data) {
            var b = gl.createBuffer();
            gl.bindBuffer(target, b);
            gl.bufferData(target, data, gl.STATIC_DRAW);
            return b;
        };
        this.big = this.vertexIndex.length > 65530 || this.vertexXY.length / 2 > 65530;
        this.gl = {
            xy: mk(gl.ARRAY_BUFFER, new Float32Array(this.vertexXY)),
            nm: mk(gl.ARRAY_BUFFER, new Float32Array(this.vertexNormal)),
            uv: mk(gl.ARRAY_BUFFER, new Uint16Array(this.vertexUV)),
            co: mk(gl.ARRAY_BUFFER, new Uint8Array(this.vertexColor)),
            z: mk(gl.ARRAY_BUFFER, new Uint8Array(this.vertexZ)),
            ix: mk(gl.ELEMENT_ARRAY_BUFFER, this.big ? new Uint32Array(this.vertexIndex) : new Uint16Array(this.vertexIndex))
        };
        this.refresh = false;
    },
    /* Draws the triangles with program p (attribute locations p.a). */
    draw: function (gl, p) {
        if (!this.vertexIndex.length) return;
        /* after a context loss the map makes a new program record: the
        ** arrays are still here, so the geometry goes up again without a
        ** rebuild */
        if (this.refresh || !this.gl || this.ctx !== p) {
            this.upload(gl);
            this.ctx = p;
        }
        var a = p.a, b = this.gl;
        var bind = function (loc, buf, n, type, norm) {
            if (loc < 0) return;
            gl.bindBuffer(gl.ARRAY_BUFFER, buf);
            gl.enableVertexAttribArray(loc);
            gl.vertexAttribPointer(loc, n, type, norm, 0, 0);
        };
        bind(a.aVertex, b.xy, 2, gl.FLOAT, false);
        bind(a.aNormal, b.nm, 2, gl.FLOAT, false);
        bind(a.aUV, b.uv, 2, gl.UNSIGNED_SHORT, true);
        bind(a.aColor, b.co, 4, gl.UNSIGNED_BYTE, true);
        bind(a.aZindex, b.z, 1, gl.UNSIGNED_BYTE, true);
        gl.uniform1i(p.u.uTexture, this.texture ? 1 : 0);
        if (this.texture) {
            gl.activeTexture(gl.TEXTURE0);
            gl.bindTexture(gl.TEXTURE_2D, this.texture);
        }
        gl.bindBuffer(gl.ELEMENT_ARRAY_BUFFER, b.ix);
        gl.drawElements(gl.TRIANGLES, this.vertexIndex.length, this.big ? gl.UNSIGNED_INT : gl.UNSIGNED_SHORT, 0);
        var locs = [a.aNormal, a.aColor, a.aZindex, a.aUV];
        for (var i = 0; i < locs.length; i++) if (locs[i] >= 0) gl.disableVertexAttribArray(locs[i]);
    }
};

/* ---- texture fonts -------------------------------------------------------- */

/* A font: per character a texture cell u1, v1, u2, v2, its size w, h and
** anchor ofx, ofy in size units of 100; _defimage names the sheet. */
RX.gltext = function (font, texture) {
    this.font = font || {};
    this.charspace = 10;
    this.buffer = new RX.vertexbuffer(RX.TX_Z, [0, 0, 0, 255]);
    this.buffer.texture = texture || null;
};

RX.gltext.prototype = {
    /* Size of text at height size: width of the longest line, line count
    ** times size. Blanks and code 8 advance 0.4 of the size. */
    getBBox: function (text, size) {
        var w = 0, lw = 0, lines = 1, f = this.font;
        text = String(text);
        for (var i = 0; i < text.length; i++) {
            var ch = text.charAt(i), code = text.charCodeAt(i);
            if (ch === "\n") {
                lines++;
                lw = 0;
                continue;
            }
            if (ch === " " || code === 8) lw += 0.4 * size;
            else if (f[ch]) lw += (Number(f[ch].w) + this.charspace) * size / 100;
            if (lw > w) w = lw;
        }
        return { w: w, h: lines * size };
    },
    /* Glyph quads for text with its top left corner at offset (ox, oy) in
    ** size units from the anchor x, y. */
    addText: function (x, y, text, size, ox, oy, z, color) {
        var f = this.font, b = this.buffer, cx = ox, cy = oy, s = size / 100;
        text = String(text);
        for (var i = 0; i < text.length; i++) {
            var ch = text.charAt(i), code = text.charCodeAt(i), g = f[ch];
            if (ch === "\n") {
                cx = ox;
                cy += size;
                continue;
            }
            if (ch === " " || code === 8) {
                cx += 0.4 * size;
                continue;
            }
            if (!g) continue;
            if (code > 33) {
                /* ofy: the glyph's top above the foot of the line's 100
                ** units, so the top is 100 - ofy below the line's top */
                var top = cy + (100 - Number(g.ofy)) * s;
                var x1 = cx + Number(g.ofx || 0) * s, x2 = x1 + Number(g.w) * s, y2 = top + Number(g.h) * s;
                var a = b.add(x, y, x1, top, g.u1, g.v1, z, color);
                b.add(x, y, x2, top, g.u2, g.v1, z, color);
                b.add(x, y, x2, y2, g.u2, g.v2, z, color);
                b.add(x, y, x1, y2, g.u1, g.v2, z, color);
                b.quad(a, a + 1, a + 2, a + 3);
            }
            cx += (Number(g.w) + this.charspace) * s;
        }
    }
};

/* ---- textures ------------------------------------------------------------- */

/* Image name src to a texture: the image is made on the first call and
** uploaded (mipmaps, linear filters, clamp to edge) on a later call once it
** has loaded. Returns the texture, or null while it is not ready. */
RX.loadTexture = function (gl, name, src) {
    if (RX.textureList[name]) return RX.textureList[name];
    var img = RX.imageList[name];
    if (!img) {
        img = new Image();
        img.onload = function () {
            if (typeof cpApp !== "undefined" && cpApp && cpApp.map) cpApp.map.paintByTimer();
        };
        img.src = src;
        RX.imageList[name] = img;
        return null;
    }
    if (!img.complete || !img.naturalWidth) return null;
    var t = gl.createTexture();
    gl.bindTexture(gl.TEXTURE_2D, t);
    gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA, gl.RGBA, gl.UNSIGNED_BYTE, img);
    var pow2 = function (n) { return (n & (n - 1)) === 0; };
    if (pow2(img.naturalWidth) && pow2(img.naturalHeight)) {
        gl.generateMipmap(gl.TEXTURE_2D);
        gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MIN_FILTER, gl.LINEAR_MIPMAP_LINEAR);
    } else {
        /* WebGL 1 has no mipmaps for other sizes */
        gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MIN_FILTER, gl.LINEAR);
    }
    gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MAG_FILTER, gl.LINEAR);
    gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_WRAP_S, gl.CLAMP_TO_EDGE);
    gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_WRAP_T, gl.CLAMP_TO_EDGE);
    RX.textureList[name] = t;
    return t;
};
