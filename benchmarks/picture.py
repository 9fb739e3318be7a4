"""Draws ratios as bars with a line at 1, as an SVG that needs nothing but itself."""
from xml.sax.saxutils import escape

WIDTH, BAR, STEP, TOP = 860, 16, 40, 48
LEFT, RIGHT = 24, 780  # where bars begin, and where the longest may end

# The card brings its own background: a page may be light where the reader's system is dark, and the other way round.
STYLE = """
  text { font: 13px system-ui, sans-serif; fill: #1f2328 }
  .title { font-size: 16px; font-weight: 600 }
  .peer { fill: #59636e }
  .card { fill: #f6f8fa; stroke: #d1d9e0 }
  .line { stroke: #1f2328; stroke-width: 1.5 }
  .less { fill: #1f7a4d }
  .more { fill: #b35900 }
  @media (prefers-color-scheme: dark) {
    text { fill: #f0f6fc }
    .peer { fill: #9198a1 }
    .card { fill: #151b23; stroke: #3d444d }
    .line { stroke: #e6edf3 }
    .less { fill: #3fb979 }
    .more { fill: #e08a3c }
  }"""


def draw(bars):
    """The picture of (work, peer, ratio): each a bar as long as its ratio, 1 being the peer."""
    bars = [(work.replace("`", ""), peer.replace("`", ""), ratio) for work, peer, ratio in bars]
    unit = (RIGHT - LEFT) / max(1.05, *(ratio for _, _, ratio in bars))
    bottom = TOP + STEP * len(bars)
    told = "; ".join(f"{work}: {ratio:.2f} of {peer}" for work, peer, ratio in bars)
    drawn = "\n".join(bar(TOP + STEP * i, unit, *one_bar) for i, one_bar in enumerate(bars))
    return f"""<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {bottom + 16}" role="img"
    aria-labelledby="title desc">
<title id="title">CPU time of tavlox as a share of what people would use instead</title>
<desc id="desc">{escape(told)}.</desc>
<style>{STYLE}
</style>
<rect class="card" x="0.5" y="0.5" width="{WIDTH - 1}" height="{bottom + 15}" rx="6"/>
<text class="title" x="{LEFT}" y="30">CPU time beside what people would use instead, whose bar would end at the line</text>
{drawn}
</svg>
"""


def bar(y, unit, work, peer, ratio):
    label = f'{escape(work)}<tspan class="peer"> / {escape(peer)}</tspan>'
    length, one = LEFT + max(1, ratio * unit), LEFT + unit
    # The figure stands behind its bar, or behind the line if that would strike it through.
    figure = one if length < one < length + 40 else length
    return f"""<text x="{LEFT}" y="{y + 12}">{label}</text>
<rect class="{'less' if ratio <= 1 else 'more'}" x="{LEFT}" y="{y + 17}" width="{length - LEFT:.1f}" height="{BAR}" rx="2"/>
<line class="line" x1="{one:.1f}" x2="{one:.1f}" y1="{y + 15}" y2="{y + 35}"/>
<text x="{figure + 6:.1f}" y="{y + 30}">{ratio:.2f}</text>"""
