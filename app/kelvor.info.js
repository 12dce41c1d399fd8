/*
** kelvor.info.js: the client's version.
*/

var COREVERSION = "C.1.16.568";
var COREBUILD = 568;
