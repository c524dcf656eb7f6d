#!/usr/bin/env python3
"""Draws the images that ARVEN's pages use and writes them beside this script.

Run:  python3 graphics/make_graphics.py [OUTPUT_DIR]

Needs Pillow (Debian: python3-pil). The output is deterministic: no random
numbers, no clock. The generated files are committed, so building or running
ARVEN never needs Python; run this only to change the artwork.

Files written:
  loading.gif                     animated wait spinner (40x40, white)
  bar1.gif .. bar5.gif            small data-quality bars (50x10)
  48bar1.gif .. 48bar5.gif        large data-quality bars (120x24)
  sorted_up.gif, sorted_down.gif  sort arrows (9x9, transparent)
  edit_gif.gif                    icon: edit the regional profile
  edit_rdp_gif.gif                icon: edit the RDP operations
  hotspot.gif                     icon: hotspot report
  detailed_report.gif             icon: detailed report
  bk1.jpg                         welcome page background (1600x1000)
  arven_logo.png                  wordmark for the About box (240x64)
"""

import math
import os
import sys

from PIL import Image, ImageDraw, ImageFilter, ImageFont

OUT = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))

# House colours.
GREEN_DARK = (46, 110, 58)
GREEN = (86, 160, 70)
GREEN_LIGHT = (170, 214, 140)
INK = (60, 66, 72)
PAPER = (255, 255, 255)
PAPER_EDGE = (120, 128, 136)

# Data-quality colours, score 1 (poor) to 5 (good).
DQ_COLOURS = [
    (214, 48, 39),   # 1 red
    (240, 120, 40),  # 2 orange
    (232, 184, 30),  # 3 amber
    (140, 196, 70),  # 4 light green
    (36, 150, 72),   # 5 green
]
DQ_EMPTY = (226, 228, 230)
DQ_FRAME = (150, 154, 158)

SS = 4  # supersampling factor for anti-aliased drawings


def out(name):
    return os.path.join(OUT, name)


def to_gif(rgba, name, transparent=True, threshold=96):
    """Saves an RGBA image as a GIF: half-covered pixels are blended onto
    white, nearly empty ones become the transparent index."""
    w, h = rgba.size
    white = Image.new("RGBA", (w, h), PAPER + (255,))
    flat = Image.alpha_composite(white, rgba).convert("RGB")
    pal = snap_white(flat.quantize(colors=255, method=Image.Quantize.MEDIANCUT, dither=Image.Dither.NONE))
    if not transparent:
        pal.save(name, optimize=False)
        return
    # Index 255 is free (at most 255 colours were used): make it transparent.
    palette = pal.getpalette()[: 255 * 3]
    palette += [255, 0, 255]  # key colour, never shown
    pal.putpalette(palette)
    alpha = rgba.getchannel("A")
    px = pal.load()
    apx = alpha.load()
    for y in range(h):
        for x in range(w):
            if apx[x, y] < threshold:
                px[x, y] = 255
    pal.info["transparency"] = 255
    pal.save(name, transparency=255, optimize=False)


def snap_white(pal_img):
    """Quantising averages colours; make the entry nearest to white pure white
    so that backgrounds and paper match the page exactly."""
    palette = pal_img.getpalette()
    n = len(palette) // 3
    best = min(range(n), key=lambda i: sum(255 - palette[3 * i + k] for k in range(3)))
    if sum(255 - palette[3 * best + k] for k in range(3)) <= 24:
        palette[3 * best: 3 * best + 3] = [255, 255, 255]
        pal_img.putpalette(palette)
    return pal_img


def supersampled(size):
    w, h = size
    img = Image.new("RGBA", (w * SS, h * SS), (0, 0, 0, 0))
    return img, ImageDraw.Draw(img)


def finish(img, size):
    return img.resize(size, Image.Resampling.LANCZOS)


def s(v):
    """Scales a coordinate or a tuple of them to the supersampled canvas."""
    if isinstance(v, (tuple, list)):
        return type(v)(s(x) for x in v)
    return int(round(v * SS))


# ---------------------------------------------------------------- spinner

def make_loading():
    size = 40
    n = 12
    frames = []
    for f in range(n):
        img, d = supersampled((size, size))
        d.rectangle([0, 0, size * SS, size * SS], fill=PAPER + (255,))
        cx = cy = size / 2
        for i in range(n):
            # Dot i trails the head of the animation by k steps.
            k = (f - i) % n
            fade = max(0.0, 1.0 - k / (n * 0.85))
            col = tuple(int(230 - (230 - c) * fade) for c in GREEN_DARK)
            ang = 2 * math.pi * i / n - math.pi / 2
            r_orbit = 14
            r_dot = 1.9 + 1.3 * fade
            x = cx + r_orbit * math.cos(ang)
            y = cy + r_orbit * math.sin(ang)
            d.ellipse(s([x - r_dot, y - r_dot, x + r_dot, y + r_dot]), fill=col + (255,))
        frames.append(finish(img, (size, size)).convert("RGB"))
    # One shared palette keeps the frames steady.
    strip = Image.new("RGB", (size * n, size))
    for i, fr in enumerate(frames):
        strip.paste(fr, (i * size, 0))
    pal_img = snap_white(strip.quantize(colors=64, method=Image.Quantize.MEDIANCUT, dither=Image.Dither.NONE))
    white = pal_img.getpalette()[:64 * 3]
    wi = min(range(64), key=lambda i: sum(255 - white[3 * i + k] for k in range(3)))
    q = []
    for fr in frames:
        qi = fr.quantize(palette=pal_img, dither=Image.Dither.NONE)
        # Pure white stays pure white, whatever entry the matcher preferred.
        qi.paste(wi, mask=fr.convert("L").point(lambda v: 255 if v >= 254 else 0))
        q.append(qi)
    q[0].save(out("loading.gif"), save_all=True, append_images=q[1:], duration=80, loop=0,
              disposal=1, optimize=False)


# ---------------------------------------------------------- quality bars

def quality_bar(score, width, height, gap, radius):
    img, d = supersampled((width, height))
    segs = 5
    seg_w = (width - gap * (segs - 1)) / segs
    fill = DQ_COLOURS[score - 1]
    for i in range(segs):
        x0 = i * (seg_w + gap)
        x1 = x0 + seg_w
        on = i < score
        colour = fill if on else DQ_EMPTY
        frame = tuple(max(0, int(c * 0.72)) for c in fill) if on else DQ_FRAME
        d.rounded_rectangle(s([x0, 0, x1 - 0.01, height - 0.01]), radius=s(radius), fill=frame + (255,))
        d.rounded_rectangle(s([x0 + 1, 1, x1 - 1.01, height - 1.01]), radius=s(max(radius - 1, 0)),
                            fill=colour + (255,))
        if on and height >= 16:
            # A soft highlight on the upper half of a filled segment.
            hl = tuple(min(255, int(c + (255 - c) * 0.35)) for c in colour)
            d.rounded_rectangle(s([x0 + 2, 2, x1 - 2.01, height * 0.45]), radius=s(max(radius - 2, 0)),
                                fill=hl + (255,))
    return finish(img, (width, height))


def make_bars():
    for score in range(1, 6):
        to_gif(quality_bar(score, 50, 10, 1, 1.5), out("bar%d.gif" % score), threshold=60)
        to_gif(quality_bar(score, 120, 24, 3, 3.5), out("48bar%d.gif" % score), threshold=60)


# ------------------------------------------------------------ sort arrows

def make_arrows():
    col = (70, 76, 84, 255)
    for name, pts in (("sorted_up.gif", [(4.5, 1.0), (8.5, 7.5), (0.5, 7.5)]),
                      ("sorted_down.gif", [(0.5, 1.5), (8.5, 1.5), (4.5, 8.0)])):
        img, d = supersampled((9, 9))
        d.polygon([s(p) for p in pts], fill=col)
        to_gif(finish(img, (9, 9)), out(name), threshold=90)


# ------------------------------------------------------------------ icons

def folded_map(d, box, tint_a=(214, 236, 200), tint_b=(196, 226, 182)):
    """A three-panel folded map inside box = (x0, y0, x1, y1), icon units."""
    x0, y0, x1, y1 = box
    w = (x1 - x0) / 3
    skew = 2.5
    panels = []
    for i in range(3):
        a = x0 + i * w
        b = a + w
        top_a = y0 + (skew if i % 2 else 0)
        top_b = y0 + (0 if i % 2 else skew)
        bot_a = y1 - (0 if i % 2 else skew)
        bot_b = y1 - (skew if i % 2 else 0)
        panels.append([(a, top_a), (b, top_b), (b, bot_b), (a, bot_a)])
    for i, p in enumerate(panels):
        d.polygon([s(q) for q in p], fill=(tint_a if i % 2 == 0 else tint_b) + (255,))
    # Map content: a river and field boundaries.
    river = [(x0 + 1, y0 + 22), (x0 + 9, y0 + 18), (x0 + 17, y0 + 24), (x0 + 26, y0 + 19), (x1 - 1, y0 + 23)]
    d.line([s(q) for q in river], fill=(120, 170, 215, 255), width=s(1.6), joint="curve")
    for p in panels:
        d.line([s(q) for q in p + [p[0]]], fill=(96, 128, 92, 255), width=s(1.1), joint="curve")
    return panels


def pencil(d, tip, length=22, angle_deg=-45, width=6.0):
    """A pencil whose point is at tip, lying along angle_deg (towards upper right)."""
    a = math.radians(angle_deg)
    ux, uy = math.cos(a), math.sin(a)       # along the pencil, away from the tip
    nx, ny = -uy, ux                        # across
    hw = width / 2

    def p(t, c):
        return (tip[0] + ux * t + nx * c, tip[1] + uy * t + ny * c)

    cone = 6.0
    body_end = length - 4
    # Shadow.
    shadow = [p(cone, -hw), p(length, -hw), p(length, hw), p(cone, hw)]
    d.polygon([s((q[0] + 1.0, q[1] + 1.2)) for q in shadow], fill=(0, 0, 0, 50))
    # Body: two tones give it roundness.
    d.polygon([s(q) for q in [p(cone, -hw), p(body_end, -hw), p(body_end, 0), p(cone, 0)]], fill=(250, 196, 60, 255))
    d.polygon([s(q) for q in [p(cone, 0), p(body_end, 0), p(body_end, hw), p(cone, hw)]], fill=(226, 160, 30, 255))
    # Ferrule and eraser.
    d.polygon([s(q) for q in [p(body_end, -hw), p(body_end + 1.6, -hw), p(body_end + 1.6, hw), p(body_end, hw)]],
              fill=(170, 174, 180, 255))
    d.polygon([s(q) for q in [p(body_end + 1.6, -hw), p(length, -hw), p(length, hw), p(body_end + 1.6, hw)]],
              fill=(232, 120, 128, 255))
    # Wood cone and graphite point.
    d.polygon([s(q) for q in [p(0, 0), p(cone, -hw), p(cone, hw)]], fill=(240, 214, 170, 255))
    d.polygon([s(q) for q in [p(0, 0), p(2.2, -hw * 2.2 / cone), p(2.2, hw * 2.2 / cone)]], fill=(60, 60, 64, 255))
    outline = [p(0, 0), p(cone, -hw), p(length, -hw), p(length, hw), p(cone, hw), p(0, 0)]
    d.line([s(q) for q in outline], fill=(110, 80, 30, 255), width=s(0.9), joint="curve")


def document(d, box, fold=8):
    x0, y0, x1, y1 = box
    body = [(x0, y0), (x1 - fold, y0), (x1, y0 + fold), (x1, y1), (x0, y1)]
    d.polygon([s((q[0] + 1.2, q[1] + 1.4)) for q in body], fill=(0, 0, 0, 45))
    d.polygon([s(q) for q in body], fill=PAPER + (255,))
    d.polygon([s(q) for q in [(x1 - fold, y0), (x1 - fold, y0 + fold), (x1, y0 + fold)]], fill=(222, 226, 230, 255))
    d.line([s(q) for q in body + [body[0]]], fill=PAPER_EDGE + (255,), width=s(1.2), joint="curve")
    d.line([s(q) for q in [(x1 - fold, y0), (x1 - fold, y0 + fold), (x1, y0 + fold)]],
           fill=PAPER_EDGE + (255,), width=s(1.0))


def make_edit_region():
    img, d = supersampled((48, 48))
    folded_map(d, (3, 8, 39, 40))
    # The region being edited: a green patch outlined in dark green.
    region = [(9, 14), (20, 12), (27, 17), (25, 27), (15, 30), (8, 24)]
    d.polygon([s(q) for q in region], fill=(120, 186, 92, 210))
    d.line([s(q) for q in region + [region[0]]], fill=GREEN_DARK + (255,), width=s(1.4), joint="curve")
    pencil(d, (27, 33), length=22, angle_deg=-48, width=6.0)
    to_gif(finish(img, (48, 48)), out("edit_gif.gif"))


def make_edit_rdp():
    img, d = supersampled((48, 48))
    document(d, (6, 4, 36, 43))
    # Checklist rows.
    for i, y in enumerate((12, 19, 26, 33)):
        d.rounded_rectangle(s([10, y - 2.2, 14.4, y + 2.2]), radius=s(0.8), fill=(255, 255, 255, 255),
                            outline=(110, 120, 128, 255), width=s(0.9))
        if i < 3:
            d.line([s((10.8, y)), s((12, y + 1.3)), s((14.2, y - 1.8))], fill=GREEN + (255,), width=s(1.3),
                   joint="curve")
        d.line([s((17, y)), s((31 - (i % 2) * 4, y))], fill=(140, 148, 156, 255), width=s(1.6))
    pencil(d, (26, 38), length=22, angle_deg=-50, width=6.0)
    to_gif(finish(img, (48, 48)), out("edit_rdp_gif.gif"))


def make_hotspot():
    img, d = supersampled((48, 48))
    folded_map(d, (3, 10, 45, 42))
    cx, cy = 25, 24
    # Heat rings: yellow to red.
    for r, col in ((13, (255, 226, 110, 150)), (9.5, (255, 176, 60, 200)), (6, (236, 100, 40, 235)),
                   (3, (200, 30, 30, 255))):
        d.ellipse(s([cx - r, cy - r, cx + r, cy + r]), fill=col)
    # Target marker pin above the centre.
    pin_top = 3
    d.ellipse(s([cx - 5, pin_top, cx + 5, pin_top + 10]), fill=(190, 30, 36, 255), outline=(120, 16, 20, 255),
              width=s(0.9))
    d.polygon([s((cx - 4.2, pin_top + 7.5)), s((cx + 4.2, pin_top + 7.5)), s((cx, cy - 1))],
              fill=(190, 30, 36, 255))
    d.ellipse(s([cx - 2, pin_top + 3, cx + 2, pin_top + 7]), fill=(255, 255, 255, 255))
    to_gif(finish(img, (48, 48)), out("hotspot.gif"))


def make_detailed_report():
    img, d = supersampled((48, 48))
    document(d, (8, 3, 40, 44), fold=9)
    # Title line and text lines.
    d.line([s((12, 9)), s((26, 9))], fill=GREEN_DARK + (255,), width=s(2.2))
    for i, y in enumerate((14, 18, 22)):
        d.line([s((12, y)), s((35 - (i == 2) * 7, y))], fill=(150, 156, 164, 255), width=s(1.3))
    # A small column chart.
    base = 38
    for i, (hgt, col) in enumerate(((6, GREEN_LIGHT), (10, GREEN), (8, GREEN), (13, GREEN_DARK))):
        x = 13 + i * 5.6
        d.rectangle(s([x, base - hgt, x + 3.8, base]), fill=col + (255,))
    d.line([s((12, base + 0.6)), s((36, base + 0.6))], fill=(110, 116, 124, 255), width=s(1.0))
    to_gif(finish(img, (48, 48)), out("detailed_report.gif"))


# ------------------------------------------------------------- background

def lerp(a, b, t):
    return tuple(int(round(a[i] + (b[i] - a[i]) * t)) for i in range(3))


def make_background():
    W, H = 1600, 1000
    img = Image.new("RGB", (W, H))
    d = ImageDraw.Draw(img)
    sky_top = (226, 238, 248)
    sky_low = (248, 250, 244)
    for y in range(H):
        t = min(1.0, y / (H * 0.62))
        d.line([(0, y), (W, y)], fill=lerp(sky_top, sky_low, t))

    def ridge(base, amps, phase):
        pts = []
        for x in range(0, W + 8, 8):
            y = base
            for k, (amp, wl) in enumerate(amps):
                y += amp * math.sin(2 * math.pi * x / wl + phase * (k + 1))
            pts.append((x, y))
        return pts

    # Far to near hills, each a little greener but all pale.
    layers = [
        (560, [(26, 900), (12, 380)], 0.3, (226, 236, 216)),
        (640, [(30, 1100), (14, 420)], 1.7, (214, 230, 200)),
        (730, [(34, 1300), (10, 360)], 2.9, (204, 224, 188)),
        (840, [(28, 1500), (12, 500)], 4.1, (196, 220, 180)),
    ]
    for n, (base, amps, phase, col) in enumerate(layers):
        pts = ridge(base, amps, phase)
        d.polygon(pts + [(W, H), (0, H)], fill=col)
        # Field stripes on each hill: faint parallel furrows.
        stripe = lerp(col, (255, 255, 255), 0.22)
        for x0 in range(-400, W + 400, 140):
            top = ridge(base, amps, phase)
            ys = [p[1] for p in top if abs(p[0] - max(0, min(W, x0))) < 8]
            y_top = (ys[0] if ys else base) + 14
            slant = 260 if n % 2 == 0 else -200
            d.line([(x0, y_top), (x0 + slant, H)], fill=stripe, width=3)
        # The next, nearer layer covers the lower part of these stripes.
    # Hedgerows: thin darker lines along the two nearest ridges.
    for base, amps, phase, col in layers[2:]:
        pts = ridge(base, amps, phase)
        d.line(pts, fill=lerp(col, (150, 180, 140), 0.45), width=3)
    # A pale sun.
    d.ellipse([1240, 120, 1360, 240], fill=(252, 248, 226))
    img = img.filter(ImageFilter.GaussianBlur(2.2))
    # Keep it light: lift every pixel towards white so dark text stays readable.
    img = Image.blend(img, Image.new("RGB", (W, H), (255, 255, 255)), 0.25)
    img.save(out("bk1.jpg"), quality=86, optimize=False, progressive=False)


# ------------------------------------------------------------------- logo

def load_font(size):
    for path in ("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf",
                 "/usr/share/fonts/truetype/liberation/LiberationSans-Bold.ttf"):
        if os.path.exists(path):
            return ImageFont.truetype(path, size)
    return ImageFont.load_default()


def leaf(d, cx, cy, length, angle_deg, fill, vein):
    a = math.radians(angle_deg)
    ux, uy = math.cos(a), math.sin(a)
    nx, ny = -uy, ux
    pts = []
    steps = 40
    for i in range(steps + 1):
        t = i / steps
        w = math.sin(math.pi * t) ** 0.9 * length * 0.30
        pts.append((cx + ux * length * t + nx * w, cy + uy * length * t + ny * w))
    for i in range(steps, -1, -1):
        t = i / steps
        w = math.sin(math.pi * t) ** 0.9 * length * 0.30
        pts.append((cx + ux * length * t - nx * w, cy + uy * length * t - ny * w))
    d.polygon([s(p) for p in pts], fill=fill + (255,))
    d.line([s((cx, cy)), s((cx + ux * length * 0.92, cy + uy * length * 0.92))], fill=vein + (255,), width=s(1.2))
    for t in (0.3, 0.5, 0.7):
        bx, by = cx + ux * length * t, cy + uy * length * t
        for sign in (1, -1):
            ex = bx + ux * length * 0.12 + sign * nx * length * 0.17
            ey = by + uy * length * 0.12 + sign * ny * length * 0.17
            d.line([s((bx, by)), s((ex, ey))], fill=vein + (255,), width=s(0.8))


def make_logo():
    W, H = 240, 64
    img, d = supersampled((W, H))
    # Emblem: a round field with furrows and a leaf.
    cx, cy, r = 32, 32, 26
    d.ellipse(s([cx - r, cy - r, cx + r, cy + r]), fill=(232, 244, 222, 255), outline=GREEN + (255,), width=s(2))
    for i in range(5):
        y = cy + 6 + i * 3.6
        half = math.sqrt(max(0.0, (r - 2.5) ** 2 - (y - cy) ** 2))
        d.line([s((cx - half, y)), s((cx + half, y))], fill=(176, 206, 150, 255), width=s(1.4))
    leaf(d, cx - 12, cy + 10, 30, -55, GREEN, (222, 240, 208))
    leaf(d, cx - 2, cy + 12, 19, -20, GREEN_DARK, (200, 228, 190))
    # Wordmark.
    font = load_font(s(34))
    d.text(s((66, 9)), "ARVEN", font=font, fill=GREEN_DARK + (255,))
    small = load_font(s(9.5))
    d.text(s((67.5, 47)), "RURAL CLIMATE POLICY TOOL", font=small, fill=(104, 120, 108, 255))
    logo = finish(img, (W, H))
    logo.save(out("arven_logo.png"), optimize=False)


def main():
    os.makedirs(OUT, exist_ok=True)
    make_loading()
    make_bars()
    make_arrows()
    make_edit_region()
    make_edit_rdp()
    make_hotspot()
    make_detailed_report()
    make_background()
    make_logo()


if __name__ == "__main__":
    main()
