/*
** kelvor.featurcodes.js: the class of a gazetteer place, as the chart
** packs give it (a GeoNames feature class and code, "P.PPLA4"), to the
** text the Near Me list shows. Codes that are missing here show as they
** are.
*/

kelvor.featurcodes = {
    /* populated places */
    "P.PPL": "populated place",
    "P.PPLA": "seat of a first-order administrative division",
    "P.PPLA2": "seat of a second-order administrative division",
    "P.PPLA3": "seat of a third-order administrative division",
    "P.PPLA4": "seat of a fourth-order administrative division",
    "P.PPLA5": "seat of a fifth-order administrative division",
    "P.PPLC": "capital of a political entity",
    "P.PPLCH": "historical capital of a political entity",
    "P.PPLF": "farm village",
    "P.PPLG": "seat of government of a political entity",
    "P.PPLH": "historical populated place",
    "P.PPLL": "populated locality",
    "P.PPLQ": "abandoned populated place",
    "P.PPLR": "religious populated place",
    "P.PPLS": "populated places",
    "P.PPLW": "destroyed populated place",
    "P.PPLX": "section of populated place",
    "P.STLMT": "israeli settlement",

    /* ports and areas */
    "L.PRT": "port",
    "L.ANCH": "anchorage",
    "L.MARN": "marina",
    "L.RGN": "region",
    "L.LCTY": "locality",
    "L.PRK": "park",
    "L.RESN": "nature reserve",

    /* water */
    "H.ANCH": "anchorage",
    "H.BAY": "bay",
    "H.BAYS": "bays",
    "H.BNK": "bank",
    "H.CHN": "channel",
    "H.CHNM": "marine channel",
    "H.CNL": "canal",
    "H.COVE": "cove",
    "H.ESTY": "estuary",
    "H.FJD": "fjord",
    "H.GULF": "gulf",
    "H.HBR": "harbor",
    "H.INLT": "inlet",
    "H.LGN": "lagoon",
    "H.LK": "lake",
    "H.OCN": "ocean",
    "H.RF": "reef",
    "H.SD": "sound",
    "H.SEA": "sea",
    "H.SHOL": "shoal",
    "H.STM": "stream",
    "H.STMM": "stream mouth",
    "H.STRT": "strait",
    "H.WRCK": "wreck",

    /* spots and buildings */
    "S.BCN": "beacon",
    "S.BUOY": "buoy",
    "S.DCK": "dock",
    "S.FRY": "ferry",
    "S.LTHSE": "lighthouse",
    "S.MAR": "marina",
    "S.PIER": "pier",
    "S.PRT": "port",
    "S.QUAY": "quay",
    "S.WHRF": "wharf",

    /* land forms */
    "T.CAPE": "cape",
    "T.HDLD": "headland",
    "T.ISL": "island",
    "T.ISLET": "islet",
    "T.ISLS": "islands",
    "T.PEN": "peninsula",
    "T.PT": "point",
    "T.SPIT": "spit",

    /* administrative */
    "A.ADM1": "first-order administrative division",
    "A.ADM2": "second-order administrative division",
    "A.ADM3": "third-order administrative division",
    "A.PCLI": "independent political entity"
};
