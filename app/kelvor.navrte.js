/*
** kelvor.navrte.js: a chart kit's fairway line.
**
** This first form is the empty fairway that every pack starts with; the
** line itself and its use by the cross-track bar come with the AIS display
** issue.
*/

kelvor.navrte = function (name, xy) {
    this.name = name || "";
    this.xy = xy || [];
};
