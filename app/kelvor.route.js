/*
** kelvor.route.js: the user's routes.
**
** This first form holds what the start-up needs: the stored list loads and
** saves unchanged. Drawing, editing and the bar come with the routes' own
** issue.
*/

kelvor.route = function (name) {
    this.name = name || "";
    this.points = [];
};

kelvor.route.list = [];
kelvor.route.active = false;
kelvor.route.modified = false;

/* Takes the stored JSON text; anything that is not an array counts as "[]". */
kelvor.route.load = function (text) {
    var l;
    try { l = JSON.parse(text); } catch (e) { l = []; }
    kelvor.route.list = Array.isArray(l) ? l : [];
};

kelvor.route.save = function () {
    postSync("/setValue/route", JSON.stringify(kelvor.route.list));
    kelvor.route.modified = false;
};

kelvor.route.unSelect = function () { kelvor.route.active = false; };
kelvor.route.render = function (ctx) {};
kelvor.route.find = function (so) {};
