/*
** kelvor.marker.js: the base of every point on the map, and the user's
** marker list.
**
** This first form holds what the start-up needs: the stored list loads and
** saves unchanged, and a marker measures its distance to a point. Drawing,
** editing and the marker bar come with the routes and markers issue.
*/

kelvor.marker = function (x, y, txt) {
    this.x = x;
    this.y = y;
    this.txt = txt || "";
};

kelvor.marker.prototype.dist = function (p) {
    var dx = this.x - p.x, dy = this.y - p.y;
    return Math.sqrt(dx * dx + dy * dy);
};

kelvor.marker.list = [];
kelvor.marker.active = false;
kelvor.marker.modified = false;

/* Takes the stored JSON text; anything that is not an array counts as "[]". */
kelvor.marker.load = function (text) {
    var l;
    try { l = JSON.parse(text); } catch (e) { l = []; }
    kelvor.marker.list = Array.isArray(l) ? l : [];
};

kelvor.marker.save = function () {
    postSync("/setValue/marker", JSON.stringify(kelvor.marker.list));
    kelvor.marker.modified = false;
};

kelvor.marker.unSelect = function () { kelvor.marker.active = false; };
kelvor.marker.render = function (ctx) {};
kelvor.marker.find = function (so) {};
