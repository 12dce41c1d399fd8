/*
** kelvor.ruler.js: the user's rulers.
**
** This first form holds what the start-up needs: the stored list loads and
** saves unchanged. Drawing, editing and the bar come with the rulers' own
** issue.
*/

kelvor.ruler = function (name) {
    this.name = name || "";
    this.points = [];
};

kelvor.ruler.list = [];
kelvor.ruler.active = false;
kelvor.ruler.modified = false;

/* Takes the stored JSON text; anything that is not an array counts as "[]". */
kelvor.ruler.load = function (text) {
    var l;
    try { l = JSON.parse(text); } catch (e) { l = []; }
    kelvor.ruler.list = Array.isArray(l) ? l : [];
};

kelvor.ruler.save = function () {
    postSync("/setValue/ruler", JSON.stringify(kelvor.ruler.list));
    kelvor.ruler.modified = false;
};

kelvor.ruler.unSelect = function () { kelvor.ruler.active = false; };
kelvor.ruler.render = function (ctx) {};
kelvor.ruler.find = function (so) {};
