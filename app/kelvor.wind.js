/*
** kelvor.wind.js: wind and stream forecasts.
**
** This first form only answers the map's render call; the forecast grids
** come with the wind issue.
*/

kelvor.wind = {
    render: function (ctx) {},
    off: function () {
        if (cpApp && cpApp.map) cpApp.map.wftoken = false;
    }
};
