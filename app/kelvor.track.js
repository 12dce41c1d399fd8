/*
** kelvor.track.js: the recorded track and the log.
**
** This first form keeps the time stamp that each status request sends and
** the recording switch; drawing the track and the log bar come with the own
** boat issue.
*/

kelvor.track = {
    trackCoords: [],
    lastTrackTimeStamp: 4294967295,

    /* Empties the rolling track; the next status refills it from the host. */
    clearTrack: function () {
        var k = kelvor.settings.k;
        kelvor.track.trackCoords = [];
        var now = kelvor.boat && kelvor.boat.loctime ? kelvor.boat.loctime : new Date().gT();
        kelvor.track.lastTrackTimeStamp = now - Number(k.S.i_settings_track_length);
    },

    setTrackOn: function (m) {
        kelvor.settings.k.C.i_track_on = !!m;
        if (m) kelvor.track.clearTrack();
        else kelvor.track.lastTrackTimeStamp = 4294967295;
    },

    /* Appends the status rows of lon, lat, seconds; lon 999 is skipped. */
    updateTrack: function (rows) {
        var t = kelvor.track;
        if (t.lastTrackTimeStamp === 4294967295 || !Array.isArray(rows)) return;
        for (var i = 0; i < rows.length; i++) {
            var r = rows[i];
            if (Number(r[0]) === 999) continue;
            t.trackCoords.push(r[0], r[1], r[2]);
            if (r[2] > t.lastTrackTimeStamp) t.lastTrackTimeStamp = r[2];
        }
    },

    render: function (ctx) {},
    find: function (so) {}
};
