#!/usr/bin/env python3
"""Writes the ARVEN demo master data as CSV files, one per master table.

Run from anywhere: python3 data/demo/make_demo.py
The output is deterministic (no clock, no randomness), so re-running it on an
unchanged script reproduces the committed CSVs byte for byte.

The NUTS 2016 codes and names are real; every figure (areas rounded, land
cover, soil and risk distributions, costs, factors, references) is demo data
of plausible magnitude, not measured or published data.
"""

import csv
import math
import os

OUT = os.path.dirname(os.path.abspath(__file__))


def num(x):
    """Shortest text for a number; None stays empty (null)."""
    if x is None:
        return ""
    if isinstance(x, bool):
        return "1" if x else "0"
    if isinstance(x, int):
        return str(x)
    if float(x).is_integer() and abs(x) < 1e15:
        return str(int(x))
    return "%.15g" % x


def write(table, header, rows):
    path = os.path.join(OUT, table + ".csv")
    with open(path, "w", encoding="utf-8", newline="") as f:
        w = csv.writer(f, lineterminator="\r\n", quoting=csv.QUOTE_MINIMAL)
        w.writerow(header)
        for r in rows:
            assert len(r) == len(header), (table, r)
            w.writerow([num(v) if not isinstance(v, str) else v for v in r])


# ---------------------------------------------------------------------------
# NUTS areas: (code, name, sqkm, average field size ha, land cover, texture,
# climate, risk bases). Land cover shares are percent of the area for CORINE
# classes 1..9 (cropland, lowland grassland, upland grassland, woodland,
# lowland moor/heath, upland moor/heath, scrub, dunes, marshland); the rest is
# built-up land and water. Texture: sandy, loamy, clayey, organic (peat).
# Climate: Atlantic North, Atlantic Central, Continental.
# Risk bases: mean class (1..5) of erosion, flood, drought, nitrate leaching,
# compaction, habitat fragmentation and soil organic carbon before the
# land-cover and soil shifts below.
# ---------------------------------------------------------------------------

COUNTRIES = [
    # code, index, level-0 name, level-1 code and name
    ("DK", 13, "Danmark", "DK0", "Danmark"),
    ("IE", 23, "Éire/Ireland", "IE0", "Éire/Ireland"),
    ("LU", 29, "Luxembourg", "LU0", "Luxembourg"),
]

NUTS2 = [
    ("DK01", "Hovedstaden"),
    ("DK02", "Sjælland"),
    ("DK03", "Syddanmark"),
    ("DK04", "Midtjylland"),
    ("DK05", "Nordjylland"),
    ("IE04", "Northern and Western"),
    ("IE05", "Southern"),
    ("IE06", "Eastern and Midland"),
    ("LU00", "Luxembourg"),
]

#         code     name                        sqkm   avfs  land cover (1..9)                        texture          climate      er   fl   dr   nl   co   hf   soc
NUTS3 = [
    ("DK011", "Byen København", 180, 3.0, [3, 5, 0, 4, 0, 0, 2, 0, 1], [15, 55, 28, 2], [40, 0, 60], 1.6, 2.6, 2.8, 2.4, 2.2, 4.2, 2.2),
    ("DK012", "Københavns omegn", 430, 5.0, [20, 6, 0, 10, 0, 0, 2, 0, 2], [15, 55, 28, 2], [40, 0, 60], 1.6, 2.4, 2.8, 2.4, 2.2, 3.8, 2.3),
    ("DK013", "Nordsjælland", 1540, 6.0, [45, 8, 0, 22, 1, 0, 2, 0, 2], [25, 50, 22, 3], [50, 0, 50], 1.8, 2.1, 2.7, 2.5, 2.2, 3.2, 2.5),
    ("DK014", "Bornholm", 588, 6.5, [58, 6, 0, 20, 4, 0, 3, 1, 1], [25, 50, 22, 3], [30, 0, 70], 2.3, 1.9, 3.0, 2.4, 2.3, 2.9, 2.4),
    ("DK021", "Østsjælland", 1440, 9.0, [68, 6, 0, 8, 0, 0, 1, 0, 2], [15, 55, 27, 3], [45, 0, 55], 1.7, 2.2, 2.9, 2.4, 2.4, 3.6, 2.3),
    ("DK022", "Vest- og Sydsjælland", 5833, 10.0, [70, 6, 0, 10, 0, 0, 1, 1, 2], [20, 55, 22, 3], [55, 0, 45], 1.8, 2.3, 2.8, 2.5, 2.4, 3.5, 2.4),
    ("DK031", "Fyn", 3486, 8.0, [70, 6, 0, 10, 0, 0, 1, 0, 2], [20, 55, 22, 3], [60, 0, 40], 1.8, 2.2, 2.7, 2.5, 2.4, 3.4, 2.4),
    ("DK032", "Sydjylland", 8705, 9.0, [66, 8, 0, 12, 2, 0, 1, 2, 2], [55, 30, 10, 5], [90, 0, 10], 1.9, 2.6, 2.4, 2.9, 2.1, 3.2, 2.6),
    ("DK041", "Vestjylland", 7200, 10.0, [62, 8, 0, 13, 5, 0, 1, 3, 3], [70, 20, 5, 5], [95, 0, 5], 2.0, 2.8, 2.3, 3.1, 2.0, 3.0, 2.7),
    ("DK042", "Østjylland", 5896, 9.0, [62, 7, 0, 14, 2, 0, 1, 0, 2], [35, 45, 15, 5], [80, 0, 20], 1.9, 2.3, 2.5, 2.7, 2.2, 3.3, 2.5),
    ("DK050", "Nordjylland", 7874, 9.5, [60, 8, 0, 11, 5, 0, 1, 4, 4], [55, 30, 8, 7], [90, 0, 10], 2.0, 2.7, 2.4, 3.0, 2.1, 3.0, 2.8),
    ("IE041", "Border", 11516, 2.5, [3, 48, 8, 9, 10, 10, 3, 0.5, 3], [8, 52, 20, 20], [100, 0, 0], 2.6, 2.9, 1.4, 2.2, 3.3, 2.3, 3.4),
    ("IE042", "West", 14286, 2.2, [3, 45, 8, 8, 14, 9, 4, 0.5, 3], [8, 47, 20, 25], [90, 10, 0], 2.8, 3.0, 1.3, 2.2, 3.3, 2.2, 3.5),
    ("IE051", "Mid-West", 10511, 3.2, [5, 62, 5, 11, 6, 4, 2, 0, 2], [8, 55, 25, 12], [40, 60, 0], 2.3, 3.1, 1.6, 2.3, 3.2, 2.4, 3.2),
    ("IE052", "South-East", 7194, 4.8, [22, 55, 4, 10, 2, 2, 1, 0.5, 0.5], [10, 64, 22, 4], [30, 70, 0], 2.2, 2.6, 2.2, 2.5, 2.8, 2.7, 2.9),
    ("IE053", "South-West", 12315, 3.4, [6, 55, 8, 11, 5, 8, 2, 0.5, 1], [8, 57, 20, 15], [40, 60, 0], 2.6, 2.8, 1.6, 2.3, 3.1, 2.4, 3.3),
    ("IE061", "Dublin", 926, 4.0, [10, 18, 2, 5, 0, 3, 0, 0, 0], [10, 60, 25, 5], [60, 40, 0], 2.0, 2.7, 1.9, 2.3, 2.8, 3.8, 2.8),
    ("IE062", "Mid-East", 6890, 4.5, [18, 55, 4, 9, 3, 4, 1, 0, 1], [10, 60, 22, 8], [60, 40, 0], 2.2, 2.6, 2.0, 2.4, 2.9, 2.7, 3.0),
    ("IE063", "Midland", 6652, 3.5, [8, 55, 1, 10, 18, 0, 2, 0, 2], [7, 43, 25, 25], [60, 40, 0], 2.0, 3.3, 1.7, 2.2, 3.2, 2.5, 3.6),
    ("LU000", "Luxembourg", 2586, 3.8, [24, 24, 2, 35, 0, 0, 2, 0, 1], [5, 60, 33, 2], [0, 30, 70], 3.0, 2.0, 2.5, 2.2, 2.6, 2.8, 2.8),
]

N_LAND = 9
RISK_SIGMA = 0.9

# Shifts of the mean class by land cover (index 1..9) and by soil texture.
LAND_SHIFT = {
    "er": [0, 0.8, -0.6, 0.2, -1.0, 0.0, 0.1, -0.3, 1.0, -1.2],
    "fl": [0, 0.0, 0.3, 0.1, -0.5, 0.2, 0.0, -0.2, -0.5, 1.5],
    "dr": [0, 0.3, 0.0, -0.2, -0.3, 0.1, -0.4, 0.2, 0.8, -1.0],
    "nl": [0, 0.6, 0.0, -0.6, -1.3, -1.0, -1.2, -0.8, 0.3, -0.5],
    "co": [0, 0.5, 0.2, 0.3, -1.0, -0.5, -0.3, -0.6, -1.2, 0.2],
    "hf": [0, 0.8, 0.0, -0.5, -1.0, -0.8, -1.0, -0.5, -0.6, -0.6],
    "soc": [0, -0.5, 0.6, 0.9, 0.8, 1.5, 1.8, 0.2, -1.0, 1.2],
}
TEXTURE_SHIFT = {  # sandy, loamy, clayey, organic
    "er": [0.6, 0.0, -0.2, -0.4],
    "fl": [-0.4, 0.0, 0.6, 0.8],
    "nl": [1.2, 0.0, -0.5, 0.3],
    "co": [-0.8, 0.0, 1.0, 0.6],
    "hf": [0, 0, 0, 0],
    "soc": [-0.6, 0.0, 0.3, 2.5],
}
CLIMATE_SHIFT = {"dr": [-0.2, 0.2, 0.6]}  # Atlantic North, Atlantic Central, Continental


# ---------------------------------------------------------------------------
# RVC_List
# ---------------------------------------------------------------------------

ADAPT = "Adaptive Capacity"
GHG = "GHG Emissions (incl C seq)"
NA = "Not applicable"

# key, id, short name, long name, letter, risk statement, min, max,
# N factor, euro min, euro max, hotspot excl. class 0, impact type,
# conditioning baseline ("tx" texture, "cz" climate), notes
IMPACT_RVCS = [
    ("er", 1, "Soil erosion risk", "Risk of soil erosion by water and wind", "ER",
     "Reduces the risk of soil loss by water and wind erosion.", "tx"),
    ("fl", 2, "Flood risk", "Risk of flooding from surface run-off and rivers", "FL",
     "Reduces the risk of flooding downstream by slowing run-off.", "tx"),
    ("dr", 3, "Drought risk", "Risk of crop water stress in dry summers", "DR",
     "Reduces the risk of crop and grass loss in drought.", "cz"),
    ("nl", 4, "Nitrate leaching risk", "Risk of nitrate leaching to ground and surface water", "NL",
     "Reduces the risk of nitrate reaching ground and surface water.", "tx"),
    ("co", 5, "Soil compaction risk", "Risk of soil compaction by machinery and livestock", "SC",
     "Reduces the risk of compacted, poorly drained soils.", "tx"),
    ("hf", 7, "Habitat fragmentation risk", "Risk of loss and fragmentation of semi-natural habitat", "HF",
     "Reduces the risk of isolated, species-poor farmland habitat.", "tx"),
]
SOC_RVC = ("soc", 6, "Soil organic carbon", "Topsoil organic carbon content class", "OC",
           "Soil organic carbon class: 1 very low to 5 very high (peat).", "tx")

TEXTURE_ID, CLIMATE_ID = 10, 11
CORINE_NAMES = ["Cropland", "Lowland Grassland", "Upland Grassland", "Woodland",
                "Lowland Moorland and Heathland", "Upland Moorland and Heathland",
                "Scrubland", "Dunes", "Marshland"]
CORINE_ID = {c: 20 + c for c in range(1, 10)}   # 21..29
CHILD_LANDS = [1, 2, 4]                           # land types with their own child RVCs
# Land types of the operations on other land: each RVC that their factors
# use has a child for them too, so that an operation's figures come from
# its own land and are zero where that land is absent.
EXTRA_LANDS = [3, 6, 8, 9]
COMBO_TX_NL, COMBO_CZ_DR = 61, 62


class Rvc:
    def __init__(self, **kw):
        self.__dict__.update(kw)


rvcs = []


def add_rvc(**kw):
    defaults = dict(parent=0, corine=0, risk="", rmin=None, rmax=None, nf=None, emin=None,
                    emax=None, hz=0, notes="", gis="", itype=NA, maxf=None)
    defaults.update(kw)
    r = Rvc(**defaults)
    if r.rmin is not None and not r.gis:
        r.gis = "arven_%s.kmz" % r.letter.lower()
    rvcs.append(r)
    return r


for key, rid, short, long_, letter, risk, cond in IMPACT_RVCS:
    add_rvc(id=rid, type=1, short=short, long=long_, letter=letter, risk=risk, rmin=0, rmax=5,
            nf=0.2, emin=0, emax=5, hz=1, itype=ADAPT, key=key, cond=cond,
            notes="Classes 1 (low) to 5 (very high); 0 where the risk does not apply.")
add_rvc(id=SOC_RVC[1], type=4, short=SOC_RVC[2], long=SOC_RVC[3], letter=SOC_RVC[4],
        risk=SOC_RVC[5], rmin=0, rmax=5, nf=0.2, emin=0, emax=5, itype=GHG, key="soc", cond="tx",
        notes="No risk scale: a higher class stores more carbon.")
add_rvc(id=TEXTURE_ID, type=2, short="Soil texture", long="Dominant topsoil texture class",
        letter="TX", rmin=0, rmax=4, nf=1, emin=1, emax=4,
        notes="1 sandy, 2 loamy, 3 clayey, 4 organic (peat); 0 built-up land and water.")
add_rvc(id=CLIMATE_ID, type=2, short="Climate zone", long="Environmental climate zone",
        letter="CZ", rmin=1, rmax=3, nf=1, emin=1, emax=3,
        notes="1 Atlantic North, 2 Atlantic Central, 3 Continental.")
add_rvc(id=15, type=3, short="Whole area", long="Whole area, no regional variation", letter="WA",
        notes="Used for figures that do not vary by region.")
add_rvc(id=19, type=3, short="Any land (delta RVC)",
        long="Any land: takes the RVC of the delta row or the land class of the operation",
        letter="AL", nf=1, notes="Reserved by impact generation; has no class data of its own.")
for c in range(1, 10):
    add_rvc(id=CORINE_ID[c], type=5, corine=c, short="%s (CORINE)" % CORINE_NAMES[c - 1],
            long="Share of the area that is %s" % CORINE_NAMES[c - 1].lower(),
            letter="LC%d" % c, rmin=0, rmax=1, nf=1, emin=0, emax=1,
            notes="Class 1: land of this type; class 0: other land.")

LAND_WORD = {c: CORINE_NAMES[c - 1].lower() for c in range(1, 10)}
next_id = 31


def add_impact_children(lands):
    global next_id
    for key, rid, short, long_, letter, risk, cond in IMPACT_RVCS:
        for l in lands:
            add_rvc(id=next_id, type=6, parent=rid, corine=l,
                    short="%s (%s)" % (short, LAND_WORD[l]), long="%s on %s" % (long_, LAND_WORD[l]),
                    letter="%s%d" % (letter, l), risk=risk, rmin=0, rmax=5, nf=0.2, emin=0, emax=5,
                    hz=1, itype=ADAPT, key=key, cond=cond, land=l,
                    notes="Class 0: land other than %s." % LAND_WORD[l])
            next_id += 1


def add_texture_children(lands, first_id):
    for i, l in enumerate(lands):
        add_rvc(id=first_id + i, type=7, parent=TEXTURE_ID, corine=l,
                short="Soil texture (%s)" % LAND_WORD[l], long="Topsoil texture class of %s" % LAND_WORD[l],
                letter="TX%d" % l, rmin=0, rmax=4, nf=1, emin=1, emax=4, land=l,
                notes="Class 0: land other than %s." % LAND_WORD[l])


add_impact_children(CHILD_LANDS)   # 31..48
add_texture_children(CHILD_LANDS, 51)
add_rvc(id=COMBO_TX_NL, type=8, short="Soil texture x nitrate leaching risk",
        long="Combination of soil texture and nitrate leaching risk", letter="TN", rmin=0, rmax=20,
        nf=1, emin=0, emax=20, itype=GHG,
        notes="Class = (texture - 1) x 5 + leaching risk class.")
add_rvc(id=COMBO_CZ_DR, type=8, short="Climate zone x drought risk",
        long="Combination of climate zone and drought risk", letter="CD", rmin=0, rmax=15,
        nf=1, emin=0, emax=15, itype=NA, notes="Class = (zone - 1) x 5 + drought risk class.")
for i, (combo, l) in enumerate([(COMBO_TX_NL, 1), (COMBO_TX_NL, 2), (COMBO_CZ_DR, 1),
                                 (COMBO_CZ_DR, 2)]):
    base = next(r for r in rvcs if r.id == combo)
    add_rvc(id=71 + i, type=9, parent=combo, corine=l, short="%s (%s)" % (base.short, LAND_WORD[l]),
            long="%s on %s" % (base.long, LAND_WORD[l]), letter="%s%d" % (base.letter, l),
            rmin=0, rmax=base.rmax, nf=1, emin=0, emax=base.emax, itype=base.itype, land=l,
            notes="Class 0: land other than %s." % LAND_WORD[l])

next_id = 101
add_impact_children(EXTRA_LANDS)   # 101..124
add_texture_children(EXTRA_LANDS, 54)
for i, l in enumerate(CHILD_LANDS + EXTRA_LANDS):
    add_rvc(id=131 + i, type=6, parent=SOC_RVC[1], corine=l, short="%s (%s)" % (SOC_RVC[2], LAND_WORD[l]),
            long="%s of %s" % (SOC_RVC[3], LAND_WORD[l]), letter="%s%d" % (SOC_RVC[4], l),
            risk=SOC_RVC[5], rmin=0, rmax=5, nf=0.2, emin=0, emax=5, itype=GHG, key="soc", cond="tx",
            land=l, notes="Class 0: land other than %s." % LAND_WORD[l])

RVC_BY_ID = {r.id: r for r in rvcs}
assert len(RVC_BY_ID) == len(rvcs) and max(RVC_BY_ID) <= 400

# ---------------------------------------------------------------------------
# Distributions per NUTS3 area, as fractions; parents aggregate by GIS area.
# ---------------------------------------------------------------------------


def class_profile(mu):
    """Shares of classes 1..5 around a mean class."""
    w = [math.exp(-((k - mu) ** 2) / (2 * RISK_SIGMA ** 2)) for k in range(1, 6)]
    s = sum(w)
    return [x / s for x in w]


def area_fractions(a):
    code, name, sqkm, avfs, land, tex, clim = a[:7]
    bases = dict(zip(["er", "fl", "dr", "nl", "co", "hf", "soc"], a[7:]))
    L = [0.0] + [x / 100.0 for x in land]
    L[0] = 1.0 - sum(L[1:])
    T = [x / 100.0 for x in tex]
    Z = [x / 100.0 for x in clim]
    assert abs(sum(T) - 1) < 1e-9 and abs(sum(Z) - 1) < 1e-9 and L[0] >= 0.0, code
    d = {}  # rvc id -> {class: fraction}

    def joint(key, cond):
        """J[l][b][k]: land l (1..9), baseline class b (0-based), risk class k (1..5)."""
        J = {}
        bdist = T if cond == "tx" else Z
        for l in range(1, N_LAND + 1):
            for b, pb in enumerate(bdist):
                shift = (TEXTURE_SHIFT[key][b] if cond == "tx" else CLIMATE_SHIFT[key][b])
                prof = class_profile(bases[key] + LAND_SHIFT[key][l] + shift)
                for k in range(1, 6):
                    J[(l, b, k)] = L[l] * pb * prof[k - 1]
        return J

    joints = {}
    for r in rvcs:
        if r.type in (1, 4):
            joints[r.key] = joint(r.key, r.cond)
    for r in rvcs:
        dist = {}
        if r.type in (1, 4):
            J = joints[r.key]
            dist[0] = L[0]
            for (l, b, k), v in J.items():
                dist[k] = dist.get(k, 0) + v
        elif r.type == 6:
            J = joints[r.key]
            dist[0] = 1 - L[r.land]
            for (l, b, k), v in J.items():
                if l == r.land:
                    dist[k] = dist.get(k, 0) + v
        elif r.id == TEXTURE_ID:
            dist[0] = L[0]
            for c in range(4):
                dist[c + 1] = (1 - L[0]) * T[c]
        elif r.type == 7:
            dist[0] = 1 - L[r.land]
            for c in range(4):
                dist[c + 1] = L[r.land] * T[c]
        elif r.id == CLIMATE_ID:
            for z in range(3):
                dist[z + 1] = Z[z]
        elif r.type == 5:
            dist = {0: 1 - L[r.corine], 1: L[r.corine]}
        elif r.type in (8, 9):
            combo = r.id if r.type == 8 else r.parent
            J = joints["nl" if combo == COMBO_TX_NL else "dr"]
            land = getattr(r, "land", None)
            dist[0] = L[0] if land is None else 1 - L[land]
            for (l, b, k), v in J.items():
                if land is None or l == land:
                    cls = b * 5 + k
                    dist[cls] = dist.get(cls, 0) + v
        else:
            continue  # RVC independent: no classes
        assert abs(sum(dist.values()) - 1) < 1e-9, (code, r.id)
        d[r.id] = dist
    return L, d


def largest_remainder(fracs):
    """Whole percentages summing to exactly 100, in class order for ties."""
    keys = sorted(fracs)
    raw = {k: fracs[k] * 100.0 for k in keys}
    floor = {k: int(math.floor(raw[k])) for k in keys}
    short = 100 - sum(floor.values())
    order = sorted(keys, key=lambda k: (-(raw[k] - floor[k]), k))
    for k in order[:short]:
        floor[k] += 1
    assert sum(floor.values()) == 100
    return floor


# ---------------------------------------------------------------------------
# NUTS tables
# ---------------------------------------------------------------------------


def gis_area(code, sqkm):
    # a GIS polygon area a little off the statistical area, reproducibly
    h = sum(ord(ch) * (i + 1) for i, ch in enumerate(code))
    return round(sqkm * (1 + ((h % 9) - 5) / 1000.0), 2)


levels = {0: [], 1: [], 2: [], 3: []}  # dicts per area
for ci, (cc, idx, name0, code1, name1) in enumerate(COUNTRIES):
    a0 = dict(level=0, id=idx, code=cc, name=name0, parents={}, children=[])
    a1 = dict(level=1, id=ci + 1, code=code1, name=name1, parents={0: idx}, children=[])
    a0["children"].append(a1)
    levels[0].append(a0)
    levels[1].append(a1)
    for code2, name2 in NUTS2:
        if not code2.startswith(cc):
            continue
        a2 = dict(level=2, id=len(levels[2]) + 1, code=code2, name=name2,
                  parents={0: idx, 1: a1["id"]}, children=[])
        a1["children"].append(a2)
        levels[2].append(a2)
        for row in NUTS3:
            if not row[0].startswith(code2):
                continue
            L, dist = area_fractions(row)
            a3 = dict(level=3, id=len(levels[3]) + 1, code=row[0], name=row[1],
                      parents={0: idx, 1: a1["id"], 2: a2["id"]}, children=[], sqkm=float(row[2]),
                      gis=gis_area(row[0], row[2]), avfs=row[3], land=L, dist=dist)
            a2["children"].append(a3)
            levels[3].append(a3)


def aggregate(a):
    if a["level"] == 3:
        return
    for c in a["children"]:
        aggregate(c)
    kids = a["children"]
    a["sqkm"] = round(sum(c["sqkm"] for c in kids), 2)
    a["gis"] = round(sum(c["gis"] for c in kids), 2)
    a["avfs"] = round(sum(c["avfs"] * c["sqkm"] for c in kids) / a["sqkm"], 2)
    g = sum(c["gis"] for c in kids)
    a["land"] = [sum(c["land"][i] * c["gis"] for c in kids) / g for i in range(N_LAND + 1)]
    a["dist"] = {}
    for rid in kids[0]["dist"]:
        classes = set()
        for c in kids:
            classes |= set(c["dist"][rid])
        a["dist"][rid] = {k: sum(c["dist"][rid].get(k, 0) * c["gis"] for c in kids) / g
                          for k in classes}


for a0 in levels[0]:
    aggregate(a0)

for k in range(4):
    idcol = "NUTS%d_ID" % k
    header = [idcol] + ["NUTS%d_ID" % p for p in range(k)] + \
        ["NUTS", "GIS_AREA", "NAME", "EU-27", "SQKM", "AV_FS"]
    rows = []
    for a in levels[k]:
        rows.append([a["id"]] + [a["parents"][p] for p in range(k)] +
                    [a["code"], a["gis"], a["name"], "Y", a["sqkm"], a["avfs"]])
    write("NUTS%d" % k, header, rows)

    data_rows, dist_rows = [], []
    for a in levels[k]:
        land_pct = largest_remainder({i: a["land"][i] for i in range(N_LAND + 1)})
        for r in rvcs:
            if r.id not in a["dist"]:
                continue
            if r.type == 5:
                pct = {0: 100 - land_pct[r.corine], 1: land_pct[r.corine]}
            else:
                pct = largest_remainder(a["dist"][r.id])
            present = [c for c in sorted(pct) if pct[c] > 0]
            avg = round(sum(c * pct[c] for c in present) / 100.0, 2)
            data_rows.append([a["id"], r.id, avg, present[0], present[-1]])
            for c in present:
                dist_rows.append([a["id"], r.id, c, pct[c]])
    write("NUTS%d_RVC_Data" % k, [idcol, "RVC ID", "Average", "Min", "Max"], data_rows)
    write("NUTS%d_RVC_Data_Dist" % k, [idcol, "RVC ID", "RVC Class", "Percent"], dist_rows)

lookups = []
for t in range(1, 5):
    for k in range(1, 6):
        lookups.append([COMBO_TX_NL, (t - 1) * 5 + k, TEXTURE_ID, t, 4, k])
for z in range(1, 4):
    for k in range(1, 6):
        lookups.append([COMBO_CZ_DR, (z - 1) * 5 + k, CLIMATE_ID, z, 3, k])
write("Baseline_Impact_Look_Up", ["Combo RVC", "Combo Class", "Baseline RVC",
                                  "Baseline RVC Class", "Impact RVC", "Impact RVC Class"], lookups)

# ---------------------------------------------------------------------------
# Operations master: reference lists
# ---------------------------------------------------------------------------

IMPACT_AREAS = [
    (1, "Soil quality"), (2, "Water quality"), (3, "Flood regulation"),
    (4, "Water availability"), (5, "Biodiversity"), (6, "Climate regulation"),
    (7, "Air quality"), (8, "Landscape & cultural heritage"), (9, "Rural economy"),
]
IA = {name: i for i, name in IMPACT_AREAS}

OP_TYPES = [
    (1, "Arable land management"), (2, "Grassland and livestock management"),
    (3, "Nutrient and manure management"), (4, "Boundary features and buffer strips"),
    (5, "Woodland and agroforestry"), (6, "Wetland, peatland and water management"),
    (7, "Farm investment and energy"), (8, "Knowledge transfer and advice"),
    (9, "Rural economy and diversification"),
]

AX1, AX2, AX3, AX4 = ("Axis 1: Competitiveness", "Axis 2: Environment and countryside",
                      "Axis 3: Quality of life and diversification", "Axis 4: Leader")
MEASURES = [
    ("111", "Vocational training and information actions", AX1),
    ("114", "Use of advisory services by farmers and forest holders", AX1),
    ("115", "Setting up of management, relief and advisory services", AX1),
    ("121", "Modernisation of agricultural holdings", AX1),
    ("122", "Improvement of the economic value of forests", AX1),
    ("125", "Infrastructure related to the development and adaptation of agriculture and forestry", AX1),
    ("213", "Natura 2000 payments and payments linked to Directive 2000/60/EC", AX2),
    ("214", "Agri-environment payments", AX2),
    ("216", "Support for non-productive investments", AX2),
    ("221", "First afforestation of agricultural land", AX2),
    ("222", "First establishment of agroforestry systems on agricultural land", AX2),
    ("223", "First afforestation of non-agricultural land", AX2),
    ("225", "Forest-environment payments", AX2),
    ("226", "Restoring forestry potential and introducing prevention actions", AX2),
    ("227", "Support for non-productive investments (forestry)", AX2),
    ("311", "Diversification into non-agricultural activities", AX3),
    ("313", "Encouragement of tourism activities", AX3),
    ("321", "Basic services for the economy and rural population", AX3),
    ("323", "Conservation and upgrading of the rural heritage", AX3),
    ("341", "Skills acquisition and animation measure with a view to preparing and "
     "implementing a local development strategy", AX3),
    ("413", "Implementing local development strategies: quality of life/diversification", AX4),
]
MEASURE_ID = {eu: i + 1 for i, (eu, _, _) in enumerate(MEASURES)}

NEW_MEASURES = [
    ("M01", "Knowledge transfer and information actions", "Art. 14"),
    ("M02", "Advisory services, farm management and farm relief services", "Art. 15"),
    ("M03", "Quality schemes for agricultural products and foodstuffs", "Art. 16"),
    ("M04", "Investments in physical assets", "Art. 17"),
    ("M05", "Restoring agricultural production potential damaged by natural disasters and "
     "catastrophic events and introduction of appropriate prevention actions", "Art. 18"),
    ("M06", "Farm and business development", "Art. 19"),
    ("M07", "Basic services and village renewal in rural areas", "Art. 20"),
    ("M08", "Investments in forest area development and improvement of the viability of forests",
     "Art. 21-26"),
    ("M09", "Setting-up of producer groups and organisations", "Art. 27"),
    ("M10", "Agri-environment-climate", "Art. 28"),
    ("M11", "Organic farming", "Art. 29"),
    ("M12", "Natura 2000 and Water Framework Directive payments", "Art. 30"),
    ("M13", "Payments to areas facing natural or other specific constraints", "Art. 31"),
    ("M14", "Animal welfare", "Art. 33"),
    ("M15", "Forest-environmental and climate services and forest conservation", "Art. 34"),
    ("M16", "Co-operation", "Art. 35"),
]
NEW_MEASURE_ID = {eu: i + 1 for i, (eu, _, _) in enumerate(NEW_MEASURES)}

PRACTICALITY = [
    (1, "Suits most farm types and sizes"),
    (2, "Needs specialist machinery or a contractor"),
    (3, "Takes land out of production"),
    (4, "Long-term land use change that is hard to reverse"),
    (5, "Needs capital investment up front"),
    (6, "Timing depends on weather and harvest dates"),
    (7, "Needs an adviser's or agronomist's input"),
    (8, "Low management burden once established"),
    (9, "Fits alongside existing agri-environment agreements"),
]

REFERENCES = [
    (1, "Demo N2O group (2009)", "Demo N2O group (2009). Direct nitrous oxide emissions from "
     "fertilised soils in north-west Europe. Journal of Agricultural Emissions 12, 101-118."),
    (2, "Larsen & Quinn (2011)", "Larsen, P. & Quinn, M. (2011). Indirect N2O from nitrate "
     "leaching by soil texture. Soil & Water Studies 7, 44-59."),
    (3, "Farm energy handbook (2010)", "Farm energy handbook (2010). Fuel and electricity use "
     "of field and farmstead operations, 3rd edn. Rural Engineering Press."),
    (4, "Byrne et al. (2012)", "Byrne, S., Weber, L. & Holm, K. (2012). Enteric and manure "
     "methane of cattle herds under Atlantic conditions. Livestock Science Notes 30, 210-224."),
    (5, "Mortensen (2008)", "Mortensen, A. (2008). Soil carbon after conversion of arable land "
     "to grassland: a chronosequence. Geoderma Notes 14, 77-90."),
    (6, "O'Sullivan & Rasmussen (2013)", "O'Sullivan, D. & Rasmussen, E. (2013). Cover crops, "
     "reduced tillage and topsoil carbon. European Soil Letters 5, 1-15."),
    (7, "Forest carbon tables (2011)", "Forest carbon tables (2011). Carbon accumulation of "
     "broadleaf and conifer stands on former farmland. Forestry Bulletin 88."),
    (8, "Hedgerow survey group (2010)", "Hedgerow survey group (2010). Biomass and soil carbon "
     "of hedgerows and field boundaries. Landscape Ecology Reports 19, 5-23."),
    (9, "Peatland emissions review (2012)", "Peatland emissions review (2012). Emissions from "
     "drained and rewetted organic soils. Wetland Science 4, 300-331."),
    (10, "Schmit & Kelly (2010)", "Schmit, J. & Kelly, R. (2010). Buffer strips and sediment "
     "and nutrient retention. Journal of Catchment Management 22, 140-156."),
    (11, "Erosion control review (2009)", "Erosion control review (2009). Vegetation cover and "
     "soil loss on arable land. Soil Conservation Digest 31, 12-29."),
    (12, "Flood storage study (2012)", "Flood storage study (2012). Floodplain wetlands and "
     "peak flows in lowland catchments. Hydrology in Practice 9, 200-215."),
    (13, "Farmland biodiversity atlas (2010)", "Farmland biodiversity atlas (2010). Habitat "
     "value of field margins, hedges and woodland. Nature Conservation Reports 61."),
    (14, "Crop yield statistics digest (2012)", "Crop yield statistics digest (2012). Cereal, "
     "grass, milk and timber output per hectare in north-west Europe. Agri-Statistics Series 3."),
    (15, "Bioenergy crops review (2011)", "Bioenergy crops review (2011). Yields and fossil fuel "
     "displacement of short rotation coppice. Energy & Land 6, 90-104."),
    (16, "Soil structure trials (2013)", "Soil structure trials (2013). Compaction, traffic and "
     "infiltration on clay and loam soils. Soil Tillage Notes 18, 33-47.",
     "https://example.org/arven-demo/soil-structure"),
]
REF = {r[1]: r[0] for r in REFERENCES}

# ---------------------------------------------------------------------------
# Activities, baselines, factors
# ---------------------------------------------------------------------------

# id, name, unit, description, impact type, norm factor, notes
ACTIVITIES = [
    (1, "Mineral nitrogen fertiliser", "kg N/ha/yr", "Mineral N applied, by soil texture", 1, 1, ""),
    (2, "Organic manure nitrogen", "kg N/ha/yr", "Slurry and manure N applied", 1, 1, ""),
    (3, "Diesel use (field operations)", "litres/ha/yr", "Fuel of cultivation, spraying and harvest", 1, 1, ""),
    (4, "Dairy cattle", "head/ha", "Dairy cows including replacements", 1, 1, "Enteric and manure emissions"),
    (5, "Beef cattle and sheep", "LU/ha", "Grazing livestock other than dairy", 1, 1, ""),
    (6, "Soil carbon: arable to grassland", "share of area (0-1)", "Land taken from tillage into permanent grass", 1, 1, "Carbon sequestration to an equilibrium"),
    (7, "Soil carbon: cover crops & reduced tillage", "share of area (0-1)", "Land with cover crops or non-inversion tillage", 1, 1, "Carbon sequestration to an equilibrium"),
    (8, "Woodland carbon", "share of area (0-1)", "Land under new or improved woodland", 1, 1, "Carbon sequestration to an equilibrium"),
    (9, "Hedgerow and boundary carbon", "share of area (0-1)", "Land under hedges and woody boundaries", 1, 1, "Carbon sequestration to an equilibrium"),
    (10, "Cultivated organic soil", "share of organic soil drained (0-1)", "Drained peat under cultivation or grazing", 1, 1, "Applies to organic soils only"),
    (11, "Grassland soil carbon management", "share of area (0-1)", "Grassland under low-input management", 1, 1, "Carbon sequestration without an equilibrium"),
    (12, "Farm electricity use", "MWh/ha/yr", "Electricity of buildings, milking and drying", 1, 1, ""),
    (13, "Fossil fuel substitution", "GJ/ha/yr", "Renewable heat or fuel replacing fossil fuel", 1, 1, ""),
    (20, "Winter green cover", "share of area (0-1)", "Land with vegetation over winter", 2, 1, ""),
    (21, "Permanent vegetated buffer", "share of area (0-1)", "Grass or wild-flower strips", 2, 1, ""),
    (22, "Hedgerows and field boundaries", "share of area (0-1)", "Woody and stone boundaries", 2, 1, ""),
    (23, "Soil structure management", "share of area (0-1)", "Controlled traffic, reduced loads", 2, 1, ""),
    (24, "Woodland cover", "share of area (0-1)", "Land under trees", 2, 1, ""),
    (25, "Wetland and floodplain storage", "share of area (0-1)", "Land that stores water in wet periods", 2, 1, ""),
    (26, "Irrigation and water storage efficiency", "share of area (0-1)", "Land irrigated efficiently from stored water", 2, 1, ""),
    (27, "Soil organic matter", "share of area (0-1)", "Land with raised topsoil organic matter", 2, 1, ""),
    (28, "Species-rich habitat", "share of area (0-1)", "Semi-natural habitat of high value", 2, 1, ""),
    (30, "Arable crop output", "share of area cropped (0-1)", "Cereal-equivalent crop output", 4, 1, ""),
    (31, "Grass forage output", "share of area in grass (0-1)", "Grazed and conserved grass", 4, 1, ""),
    (32, "Milk output", "dairy cows/ha", "Milk delivered", 4, 0.001, "Yield in kg per cow; Norm_factor 0.001 gives tonnes"),
    (33, "Timber output", "share of area in productive forest (0-1)", "Sawlog and pulp wood increment", 4, 1, ""),
    (34, "Energy crop biomass", "share of area (0-1)", "Short rotation coppice and miscanthus", 4, 1, ""),
]
ACT = {a[0]: a for a in ACTIVITIES}
FERT = 1  # the one class-by-class activity (by soil texture)
TEXTURES = [1, 2, 3, 4]

# Mitigation factors: activity, RVC, RVC value, mitigation type, tCO2e, equilibrium, refs, DQ
MITIGATION = [
    (1, 19, None, 1, 0.0047, None, "1", 4),
] + [(1, 4, k, 1, round(0.0003 * k, 4), None, "2, 1", 3) for k in range(1, 6)] + [
    (2, 19, None, 1, 0.0053, None, "1", 3),
    (3, 19, None, 1, 0.00268, None, "3", 5),
    (4, 19, None, 1, 3.4, None, "4", 4),
    (5, 19, None, 1, 2.0, None, "4", 3),
    (6, 19, None, 2, -1.83, -55, "5", 3),
    (7, 19, None, 2, -0.55, -11, "6", 3),
    (8, 19, None, 2, -11.0, -550, "7", 4),
    (9, 19, None, 2, -3.7, -130, "8", 2),
    (10, TEXTURE_ID, 4, 1, 29.0, None, "9", 3),
] + [(11, 6, k, 2, v, None, "5, 6", 2) for k, v in zip(range(1, 6), [-0.9, -0.7, -0.5, -0.3, -0.1])] + [
    (12, 19, None, 1, 0.3, None, "3", 4),
    (13, 19, None, 1, -0.074, None, "15, 3", 4),
]

# Adaptation factors: activity, impact RVC, impact factor, refs, DQ
ADAPTATION = [
    (20, 1, 0.6, "11", 4), (20, 4, 0.5, "10, 2", 3), (20, 2, 0.15, "12", 2), (20, 5, 0.2, "16", 2),
    (21, 4, 0.8, "10", 4), (21, 1, 0.7, "10, 11", 4), (21, 7, 0.5, "13", 3), (21, 2, 0.3, "12", 2),
    (22, 1, 0.4, "11", 3), (22, 7, 0.8, "13", 4), (22, 2, 0.2, "12", 2),
    (23, 5, 0.7, "16", 4), (23, 2, 0.3, "16, 12", 3), (23, 3, 0.2, "16", 2),
    (24, 2, 0.6, "12", 3), (24, 1, 0.5, "11", 3), (24, 7, 0.5, "13", 3), (24, 3, -0.1, "12", 2),
    (25, 2, 0.8, "12", 4), (25, 4, 0.6, "10", 3), (25, 7, 0.6, "13", 3),
    (26, 3, 0.6, "16", 2),
    (27, 3, 0.4, "6", 3), (27, 5, 0.3, "16", 3), (27, 1, 0.3, "11, 6", 3),
    (28, 7, 0.9, "13", 4), (28, 2, 0.05, "12", 1),
]
IMPACT_AREA_OF_RVC = {1: IA["Soil quality"], 2: IA["Flood regulation"], 3: IA["Water availability"],
                      4: IA["Water quality"], 5: IA["Soil quality"], 7: IA["Biodiversity"]}

# Yield factors: activity, RVC, RVC value, yield per unit, refs, DQ
YIELD = [
    (30, 19, None, 7.0, "14", 4),
    (31, 19, None, 8.5, "14", 3),
    (32, 19, None, 7200, "14", 4),
    (33, 19, None, 7.5, "14", 3),
    (34, 19, None, 10.0, "15", 2),
]

# Max_factor of an impact RVC: the sum of its adaptation factors.
for r in rvcs:
    if r.type == 1:
        r.maxf = round(sum(f for a, rid, f, _, _ in ADAPTATION if rid == r.id), 4)

write("RVC_List", ["RVC ID", "RVC Type", "RVC Parent", "CORINE Class", "RVC Short Name",
                   "RVC Long Name", "RVC Short Letter ID", "Risk statement", "RVC min", "RVC max",
                   "N factor", "Euro min", "Euro max", "Hotspots Exclude Class Zero", "Notes",
                   "GIS Data File", "Impact Type", "Max_factor"],
      [[r.id, r.type, r.parent, r.corine, r.short, r.long, r.letter, r.risk, r.rmin, r.rmax,
        r.nf, r.emin, r.emax, r.hz, r.notes, r.gis, r.itype, r.maxf] for r in rvcs])

# Baselines: plain Details per activity; FERT by soil texture class.
BASELINES = [
    (1, "Conventional arable", "Conventional arable rotation of winter cereals and oilseed rape, ploughed", "",
     {FERT: [140, 170, 180, 110], 2: 30, 3: 95, 6: 0, 7: 0, 8: 0, 9: 0, 10: 1, 12: 0.15, 13: 0,
      20: 0.3, 21: 0, 22: 0, 23: 0, 24: 0, 25: 0, 26: 0, 27: 0, 28: 0, 30: 1, 31: 0, 34: 0, 5: 0}),
    (2, "Intensive grassland", "Intensively managed lowland grassland for dairy and beef", "",
     {FERT: [200, 230, 220, 150], 2: 120, 3: 60, 4: 1.8, 5: 0.3, 8: 0, 10: 0.2, 11: 0, 12: 0.35,
      20: 1, 21: 0, 22: 0, 23: 0, 24: 0, 25: 0, 28: 0, 31: 1, 32: 1.8, 33: 0}),
    (3, "Extensive grazing", "Extensively grazed rough grassland, moorland and wetland", "",
     {2: 20, 3: 15, 5: 0.6, 8: 0, 9: 0, 10: 0.3, 11: 0, 22: 0, 24: 0, 25: 0.1, 28: 0.2, 31: 0.5}),
    (4, "Existing woodland", "Existing woodland under minimal management", "",
     {3: 5, 8: 0, 24: 1, 28: 0.2, 33: 0.6}),
    (5, "Whole farm (mixed)", "Whole mixed farm business: buildings, livestock and land", "Used for operations without a land class",
     {FERT: [120, 150, 160, 100], 2: 60, 3: 70, 4: 0.6, 5: 0.4, 12: 0.4, 13: 0, 30: 0.5, 31: 0.5, 32: 0.6}),
]
BASE = {b[0]: b for b in BASELINES}

# Operations. Fields: id, type, name, CORINE class, technique, ST value, uptake, cost,
# cost single, TEA_Inc, TEA_Factor, TEA_Cost, DQ, baseline, changes {activity: new Details},
# old measures, new measures, impact areas, practicality, description.
# FERT changes are [sandy, loamy, clayey, organic].
ZERO_FERT = {1: [0, 0, 0, 0]}


def arable_strip(extra):
    d = {FERT: [0, 0, 0, 0], 2: 0, 3: 0, 30: 0, 20: 1}
    d.update(extra)
    return d


def grass_strip(extra):
    d = {FERT: [0, 0, 0, 0], 2: 0, 3: 5, 4: 0, 5: 0, 32: 0, 31: 0}
    d.update(extra)
    return d


OPS = [
    (1, 1, "Winter cover crops", 1, 1, 100, 25, 110, 0, 0, 20, 8, 0.8, 1,
     {20: 0.9, 7: 1, 3: 107, FERT: [125, 160, 170, 105], 27: 0.5, 30: 0.99},
     ["214"], ["M10"], ["Soil quality", "Water quality", "Climate regulation"], [1, 6, 9],
     "Sowing a cover crop after harvest to keep the soil green over winter."),
    (2, 1, "Reduced tillage (non-inversion)", 1, 1, 100, 30, 45, 0, 0, 15, 6, 0.75, 1,
     {3: 60, 7: 0.6, 23: 0.5, 27: 0.3, 30: 0.97}, ["214"], ["M10"],
     ["Soil quality", "Climate regulation"], [2, 6], "Cultivating without ploughing."),
    (3, 1, "Zero tillage & direct drilling", 1, 1, 100, 12, 60, 0, 0, 20, 8, 0.7, 1,
     {3: 40, 7: 0.8, 23: 0.6, 27: 0.4, 30: 0.94}, ["214", "121"], ["M10", "M04"],
     ["Soil quality", "Climate regulation"], [2, 5, 7], "Drilling straight into stubble."),
    (4, 1, "Catch crops after early harvest", 1, 1, 100, 20, 70, 0, 0, 15, 6, 0.75, 1,
     {20: 0.6, 7: 0.4, 3: 101, FERT: [130, 165, 175, 110]}, ["214"], ["M10"],
     ["Water quality", "Soil quality"], [1, 6], "A short catch crop between cash crops."),
    (5, 1, "Extended rotation with legumes", 1, 1, 100, 15, 80, 0, 0, 20, 8, 0.7, 1,
     {FERT: [105, 140, 150, 90], 3: 90, 30: 0.95, 27: 0.2}, ["214"], ["M10"],
     ["Climate regulation", "Soil quality"], [1, 7], "Adding peas, beans or clover leys."),
    (6, 1, "Conversion of arable land to permanent grassland", 1, 1, 100, 5, 350, 150, 0, 10, 5,
     0.8, 1, {FERT: [50, 70, 70, 40], 2: 10, 3: 25, 6: 1, 20: 1, 30: 0, 5: 0.5, 27: 0.6},
     ["214"], ["M10"], ["Soil quality", "Water quality", "Flood regulation", "Climate regulation"],
     [3, 4], "Sowing arable land to grass for at least twenty years."),
    (7, 1, "Organic farming conversion (arable)", 1, 1, 100, 6, 220, 0, 0, 25, 15, 0.65, 1,
     {FERT: [0, 0, 0, 0], 2: 70, 3: 105, 30: 0.7, 20: 0.6, 28: 0.1},
     ["214"], ["M11"], ["Water quality", "Biodiversity", "Rural economy"], [7, 9],
     "Converting to certified organic production."),
    (8, 3, "Precision nitrogen application (variable rate)", 1, 1, 100, 20, 25, 4000, 0, 30, 10,
     0.7, 1, {FERT: [120, 145, 155, 95], 30: 1.01}, ["121"], ["M04"],
     ["Water quality", "Climate regulation"], [2, 5, 7], "GPS-guided variable rate spreading."),
    (9, 3, "Nitrogen management plan & soil testing", 1, 1, 100, 35, 15, 0, 1, 0, 0, 0.75, 1,
     {FERT: [125, 155, 165, 100]}, ["114", "214"], ["M02", "M10"],
     ["Water quality", "Climate regulation"], [1, 7], "Planning N from soil tests and crop needs."),
    (10, 1, "Controlled traffic farming", 1, 1, 100, 8, 35, 6000, 0, 20, 8, 0.65, 1,
     {3: 75, 23: 0.7, 30: 1.02}, ["121"], ["M04"], ["Soil quality", "Flood regulation"], [2, 5],
     "Keeping all machinery on permanent tramlines."),
    (11, 4, "Beetle banks & in-field grass strips", 1, 1, 3, 10, 550, 0, 0, 10, 5, 0.7, 1,
     arable_strip({21: 1, 28: 1}), ["214"], ["M10"], ["Biodiversity", "Soil quality"], [3, 8],
     "A raised grass bank across large fields for predatory insects."),
    (12, 4, "Wild bird seed mixtures (farmland birds' food plots)", 1, 1, 2, 8, 600, 0, 0, 10, 5,
     0.6, 1, arable_strip({28: 1, 3: 40}), ["214"], ["M10"], ["Biodiversity"], [3, 6],
     "Seed-bearing crops left unharvested over winter."),
    (13, 6, "Rewetting of cultivated organic soils", 1, 1, 100, 4, 500, 800, 0, 10, 10, 0.6, 1,
     {10: 0, 25: 0.4, 30: 0.95}, ["214", "216"], ["M10", "M04"],
     ["Climate regulation", "Flood regulation", "Water quality"], [3, 4, 5],
     "Blocking drains on peat soils under cultivation."),
    (14, 4, "Riparian buffer strips along watercourses", 1, 2, 6, 30, 450, 200, 0, 10, 5, 0.8, 1,
     arable_strip({21: 1, 28: 0.5, 25: 0.3}), ["214", "216"], ["M10", "M04"],
     ["Water quality", "Biodiversity", "Flood regulation"], [3, 8, 9],
     "Uncultivated grass buffers beside rivers and ditches."),
    (15, 4, "Grassed waterways and sediment traps", 1, 1, 1.5, 10, 500, 300, 0, 15, 5, 0.65, 1,
     arable_strip({21: 1}), ["216"], ["M04"], ["Soil quality", "Water quality"], [3, 5],
     "Grass in valley bottoms where run-off concentrates."),
    (16, 4, "Hedgerow planting", 1, 2, 2, 15, 0, 3500, 0, 10, 5, 0.75, 1,
     arable_strip({22: 1, 9: 1, 28: 0.8}), ["216"], ["M04"],
     ["Biodiversity", "Landscape & cultural heritage", "Climate regulation"], [4, 5, 8],
     "Planting new native hedges on field boundaries."),
    (17, 4, "Hedgerow management (rotational cutting)", 1, 2, 2, 25, 60, 0, 0, 10, 5, 0.7, 1,
     {22: 0.3, 28: 0.4, 9: 0.3}, ["214"], ["M10"], ["Biodiversity", "Landscape & cultural heritage"],
     [8, 9], "Cutting hedges every second or third year."),
    (18, 4, "Stone walls & traditional field boundaries restoration", 1, 2, 1, 5, 0, 4500, 0, 5, 5,
     0.55, 1, {22: 0.5, 28: 0.3}, ["216", "323"], ["M04", "M07"],
     ["Landscape & cultural heritage", "Biodiversity"], [5, 8], "Rebuilding walls and banks."),
    (19, 5, "Silvoarable agroforestry", 1, 1, 100, 2, 300, 2500, 0, 15, 10, 0.6, 1,
     {8: 0.15, 24: 0.15, 30: 0.88, 28: 0.2, FERT: [125, 150, 160, 100]}, ["222"], ["M08"],
     ["Climate regulation", "Biodiversity", "Soil quality"], [4, 5, 7],
     "Rows of trees planted within arable fields."),
    (20, 5, "First afforestation of arable land (broadleaf)", 1, 1, 100, 3, 400, 5000, 0, 10, 10,
     0.8, 1, {FERT: [0, 0, 0, 0], 2: 0, 3: 5, 8: 1, 24: 1, 30: 0, 20: 1, 28: 0.4},
     ["221"], ["M08"], ["Climate regulation", "Flood regulation", "Biodiversity"], [3, 4, 5],
     "Planting native broadleaves on arable land."),
    (21, 5, "First afforestation of grassland (conifer)", 2, 1, 100, 3, 350, 4000, 0, 10, 10,
     0.75, 2, {FERT: [0, 0, 0, 0], 2: 0, 3: 8, 4: 0, 5: 0, 32: 0, 31: 0, 8: 1, 24: 1, 33: 0.9},
     ["221"], ["M08"], ["Climate regulation", "Flood regulation", "Rural economy"], [3, 4, 5],
     "Planting productive conifers on grassland."),
    (22, 2, "Reduced stocking rate on intensive grassland", 2, 1, 100, 15, 90, 0, 0, 15, 6, 0.7, 2,
     {4: 1.4, 32: 1.4, FERT: [160, 180, 170, 120], 2: 95, 31: 0.9, 23: 0.3},
     ["214"], ["M10"], ["Climate regulation", "Water quality"], [1, 9], "Fewer cows per hectare."),
    (23, 2, "Low-input grassland (no mineral fertiliser)", 2, 1, 100, 10, 180, 0, 0, 15, 6, 0.7, 2,
     {FERT: [0, 0, 0, 0], 2: 20, 4: 0, 32: 0, 5: 0.8, 31: 0.5, 11: 1, 28: 0.5},
     ["214"], ["M10"], ["Water quality", "Biodiversity", "Climate regulation"], [3, 9],
     "Grazing without mineral N at low stocking."),
    (24, 2, "Clover-grass swards replacing fertiliser N", 2, 1, 100, 20, 40, 0, 0, 20, 8, 0.7, 2,
     {FERT: [120, 140, 130, 90], 31: 0.95, 11: 0.5}, ["214"], ["M10"],
     ["Climate regulation", "Water quality"], [1, 6, 7], "White clover in grazed swards."),
    (25, 3, "Low-emission slurry spreading (trailing shoe & injection)", 2, 1, 100, 30, 18, 0, 0,
     20, 5, 0.75, 2, {FERT: [185, 210, 200, 140]}, ["121", "214"], ["M04", "M10"],
     ["Air quality", "Water quality"], [2, 5], "Placing slurry at the soil surface."),
    (26, 3, "Covered slurry storage", 2, 1, 100, 20, 0, 450, 0, 10, 5, 0.65, 2, {2: 105},
     ["121"], ["M04"], ["Air quality", "Climate regulation"], [5, 8], "Covers on slurry tanks."),
    (27, 7, "Anaerobic digestion of slurry", 0, 1, 100, 3, 0, 2500, 0, 10, 10, 0.6, 5,
     {2: 48, 13: 3.5}, ["121", "311"], ["M04", "M06"],
     ["Climate regulation", "Rural economy"], [5, 7], "Biogas from slurry, heat and power used on farm."),
    (28, 8, "Dairy herd genetics & feed efficiency", 2, 1, 100, 30, 20, 0, 1, 0, 0, 0.6, 2,
     {4: 1.6}, ["111", "114"], ["M01", "M02"], ["Climate regulation", "Rural economy"], [1, 7],
     "Fewer, more efficient cows for the same milk."),
    (29, 6, "Late cutting & seasonal grazing of wet grassland", 2, 1, 100, 6, 200, 0, 0, 10, 5,
     0.65, 2, {25: 0.5, 28: 0.6, 31: 0.8, FERT: [140, 170, 160, 110]}, ["214", "213"],
     ["M10", "M12"], ["Flood regulation", "Biodiversity"], [6, 9], "Grazing wet meadows only in summer."),
    (30, 4, "Fencing livestock out of watercourses", 2, 2, 3, 25, 0, 900, 0, 10, 5, 0.7, 2,
     grass_strip({21: 1}), ["216"], ["M04"], ["Water quality", "Biodiversity"], [5, 8],
     "Fences and drinking troughs away from streams."),
    (31, 2, "Conversion of improved grassland to species-rich meadow", 2, 1, 100, 4, 300, 250, 0,
     10, 5, 0.65, 2,
     {FERT: [0, 0, 0, 0], 2: 0, 4: 0, 32: 0, 5: 0.3, 31: 0.4, 11: 1, 28: 1},
     ["214"], ["M10"], ["Biodiversity", "Landscape & cultural heritage"], [3, 9],
     "Restoring hay meadows with native seed."),
    (32, 6, "Rewetting of drained peat grassland", 2, 1, 100, 5, 300, 600, 0, 10, 10, 0.6, 3,
     {10: 0, 25: 0.7, 5: 0.3, 28: 0.5}, ["214", "216"], ["M10", "M04"],
     ["Climate regulation", "Flood regulation", "Biodiversity"], [3, 4], "Blocking drains in peat pasture."),
    (33, 6, "Heather moorland restoration", 6, 1, 100, 10, 120, 150, 0, 10, 5, 0.6, 3,
     {5: 0.2, 28: 0.8, 11: 0.5, 25: 0.4}, ["214"], ["M10"],
     ["Biodiversity", "Flood regulation"], [6, 8], "Lower grazing and re-seeding of heather."),
    (34, 2, "Conservation grazing of coastal dunes", 8, 1, 100, 15, 140, 0, 0, 10, 5, 0.55, 3,
     {5: 0.7, 28: 0.7}, ["214"], ["M10"], ["Biodiversity", "Landscape & cultural heritage"], [6, 9],
     "Light grazing to keep dunes open."),
    (35, 6, "Marshland and reedbed restoration", 9, 1, 100, 10, 250, 400, 0, 10, 5, 0.6, 3,
     {25: 1, 28: 0.9, 5: 0, 10: 0}, ["213", "216"], ["M12", "M04"],
     ["Flood regulation", "Water quality", "Biodiversity"], [3, 4], "Raising water levels in marshes."),
    (36, 5, "Shelterbelts on upland grassland", 3, 2, 8, 8, 0, 3000, 0, 10, 5, 0.6, 3,
     {8: 1, 24: 1, 22: 1, 5: 0, 31: 0}, ["216", "222"], ["M04", "M08"],
     ["Climate regulation", "Soil quality", "Biodiversity"], [4, 5], "Tree belts across exposed slopes."),
    (37, 5, "Continuous cover forestry & thinning", 4, 1, 100, 15, 40, 0, 0, 15, 8, 0.65, 4,
     {33: 0.8, 8: 0.2, 28: 0.4, 3: 10}, ["122"], ["M08"], ["Rural economy", "Biodiversity"], [2, 7],
     "Selective felling instead of clear-felling."),
    (38, 5, "Restoring forestry potential after storm & fire damage", 4, 1, 100, 2, 0, 3000, 0, 10,
     10, 0.6, 4, {8: 0.3, 33: 0.9}, ["226"], ["M05", "M08"], ["Climate regulation", "Rural economy"],
     [5, 6], "Replanting damaged stands."),
    (39, 5, "Native woodland restoration (non-productive investment)", 4, 1, 100, 5, 0, 2000, 0, 10,
     10, 0.6, 4, {28: 0.8, 33: 0.3, 8: 0.2}, ["227"], ["M08", "M15"],
     ["Biodiversity", "Landscape & cultural heritage"], [4, 5], "Replacing exotic conifers with native trees."),
    (40, 5, "Forest-environment commitments (old-growth retention)", 4, 1, 100, 5, 90, 0, 0, 5, 5,
     0.55, 4, {33: 0.2, 8: 0.4, 28: 0.7}, ["225"], ["M15"], ["Biodiversity", "Climate regulation"],
     [4, 8], "Leaving stands unfelled and deadwood in place."),
    (41, 8, "Farm advisory service on nutrient management", 0, 1, 100, 20, 12, 0, 1, 0, 0, 0.6, 5,
     {FERT: [110, 138, 148, 92], 2: 55}, ["114"], ["M02"], ["Water quality", "Climate regulation"],
     [1, 7], "One-to-one advice on nutrient planning."),
    (42, 8, "Vocational training in climate-smart farming", 0, 1, 100, 30, 5, 0, 1, 0, 0, 0.5, 5,
     {FERT: [115, 144, 154, 96], 3: 67, 12: 0.38}, ["111"], ["M01"],
     ["Climate regulation", "Rural economy"], [1], "Courses and demonstrations for farmers."),
    (43, 7, "Energy efficiency investments in farm buildings", 0, 1, 100, 15, 0, 350, 0, 10, 5, 0.7,
     5, {12: 0.28}, ["121"], ["M04"], ["Climate regulation", "Rural economy"], [5],
     "Heat recovery, LED lighting and insulation."),
    (44, 7, "On-farm renewable heat (biomass boilers)", 0, 1, 100, 5, 0, 600, 0, 10, 5, 0.6, 5,
     {13: 2.0}, ["121", "311"], ["M04", "M06"], ["Climate regulation", "Rural economy"], [5, 7],
     "Wood-chip boilers replacing oil."),
    (45, 7, "Short rotation coppice for bioenergy", 1, 1, 100, 2, 150, 2000, 0, 10, 10, 0.6, 1,
     {34: 1, 30: 0, FERT: [40, 50, 50, 30], 3: 25, 13: 120, 20: 1}, ["121"], ["M04"],
     ["Climate regulation", "Rural economy"], [2, 3, 4], "Willow coppice harvested every three years."),
    (46, 6, "Rainwater harvesting & irrigation efficiency", 1, 1, 100, 3, 0, 1500, 0, 10, 5, 0.55, 1,
     {26: 0.5}, ["125"], ["M04"], ["Water availability"], [5, 7], "Reservoirs and drip irrigation."),
    (47, 9, "Farm tourism accommodation", 0, 1, 100, 2, 0, 30000, 1, 0, 0, 0.5, None, {},
     ["311", "313"], ["M06", "M07"], ["Rural economy"], [5], "Converting farm buildings for visitors."),
    (48, 9, "Broadband & village services for rural businesses", 0, 1, 100, 5, 0, 0, 1, 0, 0, 0.5,
     None, {}, ["321"], ["M07"], ["Rural economy"], [1], "Basic services for the rural population."),
    (49, 8, "Local development strategy animation", 0, 1, 100, 5, 0, 0, 1, 0, 0, 0.5, None, {},
     ["341", "413"], ["M16"], ["Rural economy"], [1], "Animating local action groups."),
    (50, 8, "Co-operation for catchment water quality", 0, 1, 100, 10, 8, 0, 1, 0, 0, 0.55, 5,
     {FERT: [112, 140, 150, 94], 2: 56}, ["111"], ["M16", "M01"], ["Water quality"], [7, 9],
     "Farmers of one catchment planning together."),
]
assert len(OPS) >= 40


def fmt_details(x):
    return num(x)


op_rows, op_measures, op_new_measures, op_impacts, op_prac = [], [], [], [], []
op_details, base_details, deltas, delta_list = [], [], [], []

for b in BASELINES:
    bid, _, _, _, det = b
    for act in sorted(det):
        v = det[act]
        if act == FERT:
            base_details.append([bid, act, 0, 0, "Multi"])
            for t, x in zip(TEXTURES, v):
                base_details.append([bid, act, TEXTURE_ID, t, fmt_details(x)])
        else:
            base_details.append([bid, act, 0, 0, fmt_details(v)])

for (oid, otype, name, corine, tech, st, uptake, cost, cost_single, tea_inc, tea_f, tea_c, dq,
     bid, changes, meas, new_meas, impacts, prac, desc) in OPS:
    month, day = 1 + oid % 12, 1 + (oid * 7) % 28
    updated = "2013-%02d-%02d %02d:%02d:00" % (month, day, 8 + oid % 9, (oid * 13) % 60)
    notes = "No impact data yet." if bid is None else ""
    op_rows.append([oid, otype, name, desc, corine, tech, st, uptake, cost, cost_single, tea_inc,
                    tea_f, tea_c, notes, dq, updated])
    for m in meas:
        op_measures.append([oid, MEASURE_ID[m]])
    for m in new_meas:
        op_new_measures.append([oid, NEW_MEASURE_ID[m]])
    for i in impacts:
        op_impacts.append([oid, IA[i]])
    for p in prac:
        op_prac.append([oid, p])
    if bid is None:
        continue
    base = BASE[bid][4]
    for act in changes:
        assert act in base, (oid, act)  # every operation row needs its baseline row
    delta_list.append([oid, bid])
    for act in sorted(base):
        if act == FERT:
            if act not in changes:
                continue  # unchanged class-by-class activity: no rows, no marker
            op_details.append([oid, act, 0, 0, "Multi"])
            for t, x, bx in zip(TEXTURES, changes[act], base[act]):
                op_details.append([oid, act, TEXTURE_ID, t, fmt_details(x)])
            deltas.append([oid, bid, act, 0, 0, "Multi"])
            for t, x, bx in zip(TEXTURES, changes[act], base[act]):
                if x - bx != 0:
                    deltas.append([oid, bid, act, TEXTURE_ID, t, num(x - bx)])
        else:
            x = changes.get(act, base[act])
            op_details.append([oid, act, 0, 0, fmt_details(x)])
            if x - base[act] != 0:
                deltas.append([oid, bid, act, 0, 0, num(x - base[act])])

# A class-by-class delta must never sit on an activity with adaptation factors.
adapt_acts = {a for a, _, _, _, _ in ADAPTATION}
assert not any(d[5] == "Multi" and d[2] in adapt_acts for d in deltas)
assert sum(1 for o in OPS if o[13] is None) == 3

write("Operations", ["Operation ID", "Operation Type ID", "Operation Name", "Operation Description",
                     "CORINE Class", "Scaling up technique", "ST Value", "Uptake", "Cost",
                     "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost", "Notes", "Operation_DQ",
                     "Last_Updated"], op_rows)
write("Operations_Types", ["Operation Type ID", "Operation Type Name"], OP_TYPES)
write("Operations_Measures", ["Operation ID", "Measure ID"], op_measures)
write("Operations_New_Measures", ["Operation ID", "Measure ID"], op_new_measures)
write("Operations_Impacts", ["Operation ID", "Impact ID"], op_impacts)
write("Operations_Practicality", ["Operation ID", "Practicality ID"], op_prac)
write("Practicality_Items", ["Practicality ID", "Practicality Text"], PRACTICALITY)
write("Measures", ["Measure ID", "Measure EU ID", "Measure name", "Measure type"],
      [[MEASURE_ID[eu], eu, n, t] for eu, n, t in MEASURES])
write("New_Measures", ["Measure ID", "Measure EU ID", "Measure name", "Measure type"],
      [[NEW_MEASURE_ID[eu], eu, n, t] for eu, n, t in NEW_MEASURES])
write("Impact areas", ["Impact ID", "Impact name"], IMPACT_AREAS)
write("Activities", ["Activity ID", "Activity Name", "Activity Unit", "Activity Description",
                     "Notes", "Impact type", "Norm_factor"],
      [[i, n, u, d, notes, t, nf] for i, n, u, d, t, nf, notes in ACTIVITIES])
write("Baselines", ["Baseline ID", "Baseline name", "Baseline long name", "Notes"],
      [b[:4] for b in BASELINES])
write("Operation_Activity_Details", ["Operation ID", "Activity ID", "RVC ID", "RVC Class", "Details"],
      op_details)
write("Baseline_Activity_Details", ["Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Details"],
      base_details)
write("Operation_Activity_Delta", ["Operation ID", "Baseline ID", "Activity ID", "RVC ID",
                                   "RVC Class", "Delta"], deltas)
write("Delta_List", ["Operation ID", "Baseline ID"], delta_list)
write("Mitigation_Activity_Emission_Factors", ["Activity ID", "RVC ID", "RVC Value",
                                               "Mitigation Type", "tCO2e", "Equilibrium", "Refs",
                                               "Data_Quality"], MITIGATION)
write("Adaptation_Activity_Impact_Factors", ["Activity ID", "Impact Category ID", "RVC ID",
                                             "Impact factor", "Refs", "Data_Quality"],
      [[a, IMPACT_AREA_OF_RVC[r], r, f, refs, dq] for a, r, f, refs, dq in ADAPTATION])
write("Yield_Activity_Impact_Factors", ["Activity ID", "RVC ID", "RVC Value", "Yield", "Refs",
                                        "Data_Quality"], YIELD)
write("References", ["Ref ID", "Ref Short", "Ref Long", "URL"],
      [[r[0], r[1], r[2] + " (illustrative demo reference)", r[3] if len(r) > 3 else ""]
       for r in REFERENCES])
write("Scoped_Out_Operations", ["Operation ID", "Operation Name", "Operation Description",
                                "Operation Type ID", "Operation Type Name"],
      [[901, "Village hall renovation", "Out of scope: no land-use effect.", 9,
        "Rural economy and diversification"],
       [902, "Marketing of quality food products", "Out of scope: no land-use effect.", 9,
        "Rural economy and diversification"]])
write("Scoped_Out_Operations_Measures", ["Operation ID", "Measure ID"],
      [[901, MEASURE_ID["323"]], [902, MEASURE_ID["311"]]])
write("xPPL_List", ["Operation ID", "Operation Name"], [[12, OPS[11][2]]])

# every factor's RVC exists
for rid in [m[1] for m in MITIGATION] + [a[1] for a in ADAPTATION] + [y[1] for y in YIELD]:
    assert rid in RVC_BY_ID, rid

print("operations %d, RVCs %d, areas %s, details %d+%d, deltas %d, factors %d/%d/%d, dist rows %s"
      % (len(OPS), len(rvcs), [len(levels[k]) for k in range(4)], len(op_details),
         len(base_details), len(deltas), len(MITIGATION), len(ADAPTATION), len(YIELD),
         sum(1 for k in range(4) for _ in open(os.path.join(OUT, "NUTS%d_RVC_Data_Dist.csv" % k)))))
