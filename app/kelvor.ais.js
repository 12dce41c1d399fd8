/*
** kelvor.ais.js: AIS targets and the feed settings.
**
** This first form tells the host the chosen NMEA input and keeps the calls
** the start-up and the settings make; targets, their symbols and the own
** position report come with the AIS display issue.
*/

kelvor.ais = {
    targets: {},
    reporting: false,
    aisuserid: 0,

    clear: function () { kelvor.ais.targets = {}; },

    /* Follows the setting of the own position report; the report itself,
    ** sent once a minute, comes with the AIS display. */
    onoff: function () {
        kelvor.ais.reporting = !!kelvor.settings.k.C.i_traffic_mrapp_report;
    },

    /* Tells the host the input settings; a negative answer opens the
    ** internet error dialog and falls back to no source. */
    setnmea: function () {
        var k = kelvor.settings.k;
        var uid = Number(k.I.i_gps_source) === 2 ? kelvor.ais.aisuserid : 0;
        var r = getSync("/setNmeaMode/" + k.I.i_gps_intern + "/" + k.I.i_gps_source + "/" +
            k.I.i_nmea_source + "/" + encodeURIComponent(k.V.i_traffic_ais_ip || "") + "/" +
            encodeURIComponent(k.V.i_traffic_ais_port || "") + "/" + uid);
        if (r !== false && parseInt(r, 10) < 0) {
            if (cpApp) cpApp.sizeDialog(document.getElementById("np_chartkit_ineterror"));
            k.I.i_traffic_ais_source = 0;
            kelvor.settings.saveOnly();
        }
    },

    update: function (rows) {},
    addMarker: function (m) {},
    render: function (ctx) {},
    find: function (so) {}
};
