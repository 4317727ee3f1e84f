"""Writes docs/demo.svg, the moving picture of the README, from a run in the sandbox.

picture.py FILE. 80 by 24 characters, 25 seconds, played once; its last frame alone where motion is
unwanted (prefers-reduced-motion).
"""

import contextlib
import io
import re
import sys
from xml.sax.saxutils import escape

import demo
from demo import GREEN, RED, answers

COLUMNS, ROWS, SECONDS = 80, 24, 25
COLUMN, ROW, EDGE = 8.4, 18, 12  # of a character of 14 pixels, and around them all
STYLE = """text{font:14px ui-monospace,Menlo,Consolas,monospace;fill:#d8dee9;white-space:pre;\
animation:show 1ms both}.g{fill:#a3be8c}.r{fill:#f07178}.c{font-weight:bold;fill:#fff}\
@keyframes show{from{opacity:0}to{opacity:1}}\
@media(prefers-reduced-motion:reduce){text{animation:none}}"""


def play(stage: demo.Stage) -> None:
    keep(stage, "okx demo-okx-key demo-okx-secret demo-passphrase")
    keep(stage, "bybit demo-bybit-key wrong-secret", 2)
    keep(stage, "bybit demo-bybit-key demo-bybit-secret")
    for name, order in (("okx", "sell 10 50000 5"), ("bybit", "buy 0.1 49800 5")):
        body = stage.connector(f"place-open {name} BTC_USDT {order}")
        stage.write(f"order {answers.placed_id(name, body['place'])}", indent=4)
    stage.switch("mark/BTC/49800")
    short, long = stage.position("okx", "short"), stage.position("bybit", "long")
    closings = []
    for name, order in (("bybit", "buy 0.1 49800"), ("okx", "sell 10 49800")):
        body = stage.connector(f"place-close {name} BTC_USDT {order}")
        order_id = answers.placed_id(name, body)
        stage.write(f"order {order_id}", indent=4)
        with contextlib.redirect_stdout(io.StringIO()):
            report = stage.connector(f"close-report {name} BTC_USDT {order_id}")
        closings.append(answers.closing(name, report, order_id))
    profit, fees = map(sum, zip(*closings))
    stage.write(f"# {short.average - long.average:.0f} x {demo.SIZE} BTC {profit:+.2f}, "
                f"fees {fees:+.2f}, altogether {profit + fees:+.2f} USDT", GREEN)


def keep(stage: demo.Stage, words: str, exits: int = 0) -> None:
    found = stage.connector(f"validate {words}", exits)
    kept = found["credentials_saved"] == "true"
    stage.write(stage.colour("kept: " if kept else "not kept: ", GREEN if kept else RED)
                + found["status"], indent=4)


def draw(lines: list) -> str:
    width, height = round(COLUMNS * COLUMN + 2 * EDGE), ROWS * ROW + 2 * EDGE
    texts = []
    for number, line in enumerate(lines):
        kind = ' class="c"' if line.startswith("$") else ""
        for colour, name in ((GREEN, "g"), (RED, "r")):
            line = line.replace(colour, f"\0{name}\1")
        line = re.sub("\0(.)\1(.*?)\033\\[0m", r'<tspan class="\1">\2</tspan>', escape(line))
        texts.append(f'<text x="{EDGE}" y="{EDGE + ROW * (number + 1) - 5}"{kind} style="'
                     f'animation-delay:{number * SECONDS / len(lines):.1f}s">{line}</text>')
    return ('<svg xmlns="http://www.w3.org/2000/svg" xml:space="preserve" '
            f'viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
            'role="img" aria-label="A run of the connector in its sandbox">\n'
            f'<style>{STYLE}</style>\n'
            '<rect width="100%" height="100%" rx="8" fill="#1f2430"/>\n'
            + "\n".join(texts) + "\n</svg>\n")


def main(path: str) -> None:
    stage, played = demo.Stage(full=False), io.StringIO()
    stage.styled = True
    with contextlib.redirect_stdout(played):
        play(stage)
    lines = played.getvalue().splitlines()
    plain = [re.sub("\033\\[[0-9]*m", "", line) for line in lines]
    if len(lines) > ROWS or max(map(len, plain)) > COLUMNS:
        sys.exit(f"{len(lines)} lines of {max(map(len, plain))} do not fit")
    with open(path, "w", encoding="ascii") as picture:
        picture.write(draw(lines))


if __name__ == "__main__":
    main(*sys.argv[1:])
