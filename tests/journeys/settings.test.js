/* Settings: units over a reload, night mode, and German and French for every visible text. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const path = require('path');
const j = require('./journey');
const i18n = require('../../packs/app_i18n');

const table = (lang) => i18n.loadTable(path.join(__dirname, `../../packs/i18n/${lang}.tsv`)).table;

/* The texts of visible elements inside the viewport. */
function visibleTexts(page) {
    return page.evaluate(() => {
        const out = new Set();
        const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
        for (let n = walk.nextNode(); n; n = walk.nextNode()) {
            const t = n.textContent.trim(), e = n.parentElement;
            /* names of targets come from outside and stay as they are */
            if (!t || !e || e.closest('script, style, select, .ais_entry')) continue;
            const st = window.getComputedStyle(e);
            if (st.visibility === 'hidden' || e.getClientRects().length === 0) continue;
            const r = e.getBoundingClientRect();
            if (r.right <= 0 || r.bottom <= 0 || r.left >= innerWidth || r.top >= innerHeight) continue;
            out.add(t);
        }
        return [...out];
    });
}

async function boatDash(page) {
    await j.click(page, '#cp_boat', { shows: '#cp_boat_dash' });
    await j.until(async () => !/---/.test(await j.text(page, '#i_boat_dpt')), 'depth in the dashboard', 20000);
    return { sog: await j.text(page, '#i_boat_sog'), dpt: await j.text(page, '#i_boat_dpt'),
        sog2: await j.text(page, '#i_boat_sog2') };
}

/* The texts of the main menu, every Settings tab and the widened column, which stays readable. */
async function screenTexts(page, name) {
    const seen = new Set();
    const look = async () => (await visibleTexts(page)).forEach((t) => seen.add(t));
    await j.openMainMenu(page);
    await look();
    await j.openSettings(page, 0);
    for (let tab = 0; tab < 4; tab++) {
        await j.click(page, `#np_settings_dlg .np_tabs button >> nth=${tab}`);
        await look();
    }
    await j.shot(page, 'settings-' + name);
    await j.click(page, '#np_settings_dlg > .np_close', { hides: '#np_settings_dlg' });
    await j.click(page, '#i_screen_more', { shows: '#i_screen_less' });
    await look();
    assert.deepStrictEqual(await j.columnClashes(page), [], name + ': the right column readable');
    await j.shot(page, 'column-' + name);
    await j.click(page, '#i_screen_less');
    return seen;
}

/* English left on a translated page: texts the table translates, and words it keeps English on purpose. */
function untranslated(texts, english, tr) {
    return [...texts].filter((t) => (tr.has(t) ? tr.get(t) !== t :
        english.has(t) && /[A-Za-z]{2}/.test(t) && !/\d/.test(t)));
}

test('units, languages and night mode through Settings', { timeout: 300000 }, async () => {
    await j.journey('settings', { voyage: {} }, async (page, s) => {
        await j.setNetworkFeed(page, s.feed.port);
        let d = await boatDash(page);
        assert.match(d.sog, / kt$/);
        assert.match(d.dpt, / m$/);

        await j.openSettings(page, 'Common');
        await j.select(page, '#i_settings_speed', 'Km/h');
        await j.select(page, '#i_settings_depth', 'Feet');
        await j.click(page, '#np_settings_dlg .np_tabs button:text-is("Boat")');
        await j.type(page, '#i_settings_boat_name', 'Sea Otter');
        await j.settingsDone(page);
        await j.until(async () => / km\/h$/.test(await j.text(page, '#i_boat_sog')), 'km/h in the dashboard', 5000);
        d = await boatDash(page);
        assert.match(d.sog, / km\/h$/);
        assert.match(d.sog2, / km\/h$/, 'the right column follows');
        assert.match(d.dpt, / ft$/);

        await page.reload();
        await j.chartPainted(page);
        d = await boatDash(page);
        assert.match(d.sog, / km\/h$/, 'speed unit kept over a reload');
        assert.match(d.dpt, / ft$/, 'depth unit kept over a reload');
        /* the boat's speed, stored in metres per second, comes back in the new unit */
        await j.openSettings(page, 'Boat');
        assert.strictEqual(await page.inputValue('#i_settings_boat_name'), 'Sea Otter');
        assert.strictEqual(await page.inputValue('#i_settings_boat_speed'), '14.8', '8 kt in km/h');
        await j.click(page, '#np_settings_dlg > .np_close', { hides: '#np_settings_dlg' });

        const zoom = await page.locator('#cp_map_zup').boundingBox();
        const day = await j.shot(page, 'settings-day');
        await j.openSettings(page, 'Chart');
        await j.click(page, '#np_settings_chart tr:has-text("Night mode") .onoffswitch-label');
        await j.settingsDone(page);
        const night = await j.shot(page, 'settings-night');
        const sum = (p) => p[0] + p[1] + p[2];
        let dark = 0, turned = 0;
        for (let y = zoom.y + 2; y < zoom.y + zoom.height - 2; y++) {
            for (let x = zoom.x + 2; x < zoom.x + zoom.width - 2; x++) {
                if (sum(day.pixel(x, y)) < 250) {
                    dark++;
                    if (sum(night.pixel(x, y)) > 450) turned++;
                }
            }
        }
        assert.ok(dark > 50 && turned > dark * 0.8, `the button's strokes turned light: ${turned} of ${dark}`);
        const light = (img) => {
            let v = 0, n = 0;
            for (let y = 150; y < 650; y += 7) for (let x = 100; x < 900; x += 7) { v += sum(img.pixel(x, y)); n++; }
            return v / n;
        };
        assert.ok(light(night) < light(day) * 0.7, `the chart darker: ${light(day)} to ${light(night)}`);

        const english = await screenTexts(page, 'en');
        for (const [label, lang] of [['Deutsch', 'de'], ['Français', 'fr']]) {
            await j.openSettings(page, 1);
            await j.select(page, '#i_settings_language', label);
            const nav = page.waitForNavigation();
            await j.click(page, '#btn_settings_done');
            await nav;
            await j.loaded(page, 20000);
            const left = untranslated(await screenTexts(page, lang), english, table(lang));
            assert.deepStrictEqual(left, [], lang + ': no English text left');
        }
    });
});
