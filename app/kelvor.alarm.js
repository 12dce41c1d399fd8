/*
** kelvor.alarm.js: the user's alarms.
**
** This first form holds what the start-up needs: the stored list loads and
** saves unchanged. Drawing, editing and the bar come with the alarms' own
** issue.
*/

kelvor.alarm = function (name) {
    this.name = name || "";
    this.points = [];
};

kelvor.alarm.list = [];
kelvor.alarm.active = false;
kelvor.alarm.modified = false;

/* Takes the stored JSON text; anything that is not an array counts as "[]". */
kelvor.alarm.load = function (text) {
    var l;
    try { l = JSON.parse(text); } catch (e) { l = []; }
    kelvor.alarm.list = Array.isArray(l) ? l : [];
};

kelvor.alarm.save = function () {
    postSync("/setValue/alarm", JSON.stringify(kelvor.alarm.list));
    kelvor.alarm.modified = false;
};

kelvor.alarm.unSelect = function () { kelvor.alarm.active = false; };
kelvor.alarm.render = function (ctx) {};
kelvor.alarm.find = function (so) {};
