#include "nerio/Page.h"

#include <fmt/format.h>

namespace Nerio {

namespace {

constexpr std::string_view colours = R"css(
:root{color-scheme:light dark;--paper:#fff;--ink:#1c2430;--soft:#5b6675;--line:#c9d1dc;--panel:#f5f7fa;
--accent:#1f6fb2;--good:#1d7d46;--bad:#b3261e;--f0:#cfe3f7;--f1:#d8f0d3;--f2:#fbe6c5;--f3:#eadcf7;--f4:#fbd9dc;--f5:#cdeeee;
--s0:#1f6fb2;--s1:#c2571a;--s2:#2c8a4b;--s3:#8a4fb8;--s4:#b52f53;--s5:#1c8a8a;--s6:#8a7a14;--s7:#5a5f9e}
@media(prefers-color-scheme:dark){:root{--paper:#14181f;--ink:#e4e9f0;--soft:#9aa6b5;--line:#3a4553;--panel:#1c222c;
--accent:#6cb4f0;--good:#6fd398;--bad:#ff8b82;--f0:#1f4468;--f1:#26502a;--f2:#5f4a1a;--f3:#4a3566;--f4:#632c37;--f5:#1d5252;
--s0:#6cb4f0;--s1:#f0a070;--s2:#76d296;--s3:#cf9df5;--s4:#f58aa6;--s5:#62d0d0;--s6:#d8c860;--s7:#a8aef0}}
)css";

constexpr std::string_view style = R"css(
*{box-sizing:border-box}body{margin:0;background:var(--paper);color:var(--ink);font:15px/1.5 system-ui,sans-serif}
main{max-width:70rem;margin:0 auto;padding:1rem 1.25rem 4rem}h1{font-size:1.7rem;line-height:1.2;margin:1rem 0 .25rem}
h2{font-size:1.25rem;margin:2.2rem 0 .4rem;border-bottom:1px solid var(--line);padding-bottom:.2rem}h3{font-size:1rem;margin:1.2rem 0 .3rem}
p{margin:.3rem 0 .7rem}.soft{color:var(--soft)}.good{color:var(--good)}.bad{color:var(--bad)}a{color:var(--accent)}
nav{display:flex;flex-wrap:wrap;gap:.2rem .8rem;margin:.6rem 0}.wide{overflow-x:auto}svg{display:block;max-width:100%;height:auto}
.wide svg{max-width:none}table{border-collapse:collapse;font-size:.9rem}th,td{text-align:left;padding:.15rem .8rem .15rem 0;border-bottom:1px solid var(--line);vertical-align:top}
td.number,th.number{text-align:right;font-variant-numeric:tabular-nums}.cards{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(13rem,100%),1fr));gap:.8rem}.versions{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(48rem,100%),1fr));gap:1rem}
.card{background:var(--panel);border:1px solid var(--line);border-radius:.5rem;padding:.6rem .8rem;min-width:0}.big{font-size:1.5rem;font-weight:600;line-height:1.2}
.bars{display:grid;grid-template-columns:minmax(6rem,max-content) 1fr max-content;gap:.15rem .7rem;align-items:center;font-size:.9rem}
.bars .name{overflow-wrap:anywhere}.bars .track{background:var(--panel);border-radius:.2rem}.bars .bar{background:var(--accent);border-radius:.2rem;height:.85rem;min-width:1px}
.bars .bar.warm{background:var(--s1)}.bars .number{text-align:right;font-variant-numeric:tabular-nums}.fill svg{width:100%;height:5rem;margin:.3rem 0}
.fill .track{background:var(--line);border-radius:.2rem}.fill .level{background:var(--s2);height:.35rem;border-radius:.2rem}.fill .ends{display:flex;justify-content:space-between;font-size:.75rem}
.key{display:inline-block;width:.8rem;height:.8rem;border-radius:.2rem;vertical-align:middle;background:var(--accent)}.key.warm{background:var(--s1)}
details{margin:.4rem 0}summary{cursor:pointer;font-weight:600}code{font-size:.9em;overflow-wrap:anywhere}
)css";

}  // namespace

std::string escaped(std::string_view text) {
    std::string all;
    for (char const c : text) {
        switch (c) {
            case '&':
                all += "&amp;";
                break;
            case '<':
                all += "&lt;";
                break;
            case '>':
                all += "&gt;";
                break;
            case '"':
                all += "&quot;";
                break;
            default:
                all += c;
        }
    }
    return all;
}

std::string_view colourStyle() {
    return colours;
}

std::string page(std::string_view title, std::string_view body) {
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">\n"
        "<link rel=\"icon\" href=\"data:,\">\n<title>{}</title>\n<style>{}{}</style>\n</head>\n<body>\n"
        "<main>\n{}</main>\n</body>\n</html>\n",
        escaped(title), colours, style, body);
}

}  // namespace Nerio
