#!/usr/bin/env python3
"""Draws the output of delivery_rate as an SVG: plot_delivery_rate.py rates.txt docs/delivery_rate.svg

Plain SVG from the standard library, so that the picture can be made again on any machine.
"""
import sys

WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 760, 420, 60, 20, 20, 50
COLOURS = {"text": "#1b6ca8", "5": "#2a9d4a", "40": "#d98e04", "140": "#c0392b"}
NAMES = {"text": "text, 13 bytes of fixed length", "5": "message of 5 bytes", "40": "of 40", "140": "of 140"}


def main(source, target):
    curves = {}
    for line in open(source):
        kind, snr, arrived, trials = line.split()
        curves.setdefault(kind, []).append((int(snr), int(arrived) / int(trials)))
    lowest = min(snr for points in curves.values() for snr, _ in points)
    highest = max(snr for points in curves.values() for snr, _ in points)

    def x(snr):
        return LEFT + (snr - lowest) / (highest - lowest) * (WIDTH - LEFT - RIGHT)

    def y(rate):
        return TOP + (1 - rate) * (HEIGHT - TOP - BOTTOM)

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>']
    for percent in range(0, 101, 20):
        svg.append(f'<path d="M{LEFT} {y(percent / 100):.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>'
                   f'<text x="{LEFT - 8}" y="{y(percent / 100) + 4:.1f}" text-anchor="end">{percent} %</text>')
    for snr in range(lowest + lowest % 2, highest + 1, 2):
        svg.append(f'<text x="{x(snr):.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{snr}</text>')
    svg.append(f'<text x="{(LEFT + WIDTH) / 2}" y="{HEIGHT - 10}" text-anchor="middle">'
               'in-band signal-to-noise ratio, dB (18.0 to 19.5 kHz, white noise)</text>')
    for i, (kind, points) in enumerate(curves.items()):
        path = " ".join(f"{x(snr):.1f},{y(rate):.1f}" for snr, rate in points)
        svg.append(f'<polyline points="{path}" fill="none" stroke="{COLOURS[kind]}" stroke-width="2"/>')
        svg.append(f'<text x="{LEFT + 12}" y="{TOP + 18 + 18 * i}" fill="{COLOURS[kind]}">{NAMES[kind]}</text>')
    svg.append("</svg>\n")
    open(target, "w").write("\n".join(svg))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
