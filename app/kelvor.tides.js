/*
** kelvor.tides.js: tide stations.
**
** This first form holds the station list that the chart pack loads; the
** station symbols and the tide curve come with the tides issue.
*/

kelvor.tides = {
    stationList: {},
    showTide: function () {},
    renderMarker: function (ctx, m) {}
};
