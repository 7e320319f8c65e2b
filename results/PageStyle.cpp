#include "results/Page.h"

namespace zelor::results {

const char* const kPageStyle = R"css(
:root {
  color-scheme: light dark;
  --page: #ffffff; --card: #f6f8fa; --text: #1f2328; --muted: #59636e; --line: #d1d9e0; --grid: #e7ebef;
  --good: #1a7f37; --bad: #cf222e; --stop: #9a6700; --file: #bc4c00; --content: #8250df; --request: #a33b8f;
  --fetch: #54aeff; --fetched: #b6e3ff; --install: #0969da; --wait: #afb8c1;
  --link: #0550ae;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #0d1117; --card: #161b22; --text: #e6edf3; --muted: #9198a1; --line: #3d444d; --grid: #21262d;
    --good: #3fb950; --bad: #f85149; --stop: #d29922; --file: #f0883e; --content: #a371f7; --request: #db61a2;
    --fetch: #58a6ff; --fetched: #1f4b7a; --install: #a5d6ff; --wait: #484f58;
    --link: #79c0ff;
  }
}
@media print {
  :root {
    --page: #ffffff; --card: #f6f8fa; --text: #000000; --muted: #59636e; --line: #c8d0d7; --grid: #e7ebef;
    --good: #1a7f37; --bad: #cf222e; --stop: #9a6700; --file: #bc4c00; --content: #8250df; --request: #a33b8f;
    --fetch: #54aeff; --fetched: #b6e3ff; --install: #0969da; --wait: #afb8c1;
    --link: #0550ae;
  }
}
.s-success { --c: var(--good); }
.s-failed, .s-internal-failed { --c: var(--bad); }
.s-aborted { --c: var(--stop); }
.s-file-unavailable { --c: var(--file); }
.s-content-failed { --c: var(--content); }
.s-invalid-request { --c: var(--request); }
.s-downloading { --c: var(--fetch); }
.s-downloaded { --c: var(--fetched); }
.s-installing { --c: var(--install); }
.s-queued { --c: var(--wait); }
.s-queued, .s-downloading, .s-downloaded { --state-text: var(--text); }
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 40px 32px 56px; max-width: 1180px; background: var(--page); color: var(--text);
  font: 15px/1.5 system-ui, -apple-system, "Segoe UI", "Helvetica Neue", "DejaVu Sans", Arial, sans-serif;
  font-variant-numeric: tabular-nums;
}
h1 { margin: 0; font-size: 28px; line-height: 1.25; letter-spacing: -0.01em; }
h2 { margin: 44px 0 12px; font-size: 18px; line-height: 1.3; }
h3 { margin: 32px 0 4px; font-size: 15.5px; line-height: 1.35; overflow-wrap: anywhere; }
h1, .flags li { overflow-wrap: anywhere; }
p { margin: 6px 0; }
a { color: var(--link); text-decoration: none; }
a:hover { text-decoration: underline; }
.flags a { color: inherit; text-decoration: underline; }
.detail:target h3 { outline: 2px solid var(--link); outline-offset: 5px; border-radius: 3px; }
.names { margin: 6px 0; padding: 0; list-style: none; columns: 240px; column-gap: 24px; font-size: 13.5px; }
.names li { overflow-wrap: anywhere; }
.reasons { margin: 8px 0; padding: 0; list-style: none; font-size: 13.5px; }
.reasons li { overflow-wrap: anywhere; }
.reasons b { display: inline-block; min-width: 40px; margin-right: 8px; text-align: right; }
.note { color: var(--muted); }
.facts { margin: 14px 0 0; display: flex; flex-wrap: wrap; gap: 6px 28px; font-size: 13.5px; }
.facts dt { display: inline; margin-right: 6px; color: var(--muted); }
.facts dd { display: inline; margin: 0; overflow-wrap: anywhere; }
summary { margin: 44px 0 12px; cursor: pointer; }
summary h2 { display: inline; margin: 0; }
.note { font-size: 13.5px; }
.flags { margin: 16px 0 0; padding: 0; list-style: none; display: flex; flex-wrap: wrap; gap: 8px; }
.flags li {
  padding: 3px 12px; border: 1px solid var(--stop); border-radius: 999px; color: var(--stop); font-size: 13.5px;
  font-weight: 600;
}
.counts { margin: 26px 0 12px; display: grid; grid-template-columns: repeat(auto-fit, minmax(128px, 1fr)); gap: 12px; }
.count {
  padding: 12px 16px 11px; border: 1px solid var(--line); border-left: 4px solid var(--c, var(--muted));
  border-radius: 8px; background: var(--card);
}
.count b { display: block; font-size: 27px; font-weight: 650; line-height: 1.2; color: var(--state-text, var(--c, var(--text))); }
.count span { color: var(--muted); font-size: 13.5px; white-space: nowrap; }
.share { display: flex; gap: 2px; height: 10px; border-radius: 5px; overflow: hidden; }
.share i { display: block; min-width: 3px; background: var(--c); }
.scroll { overflow-x: auto; }
.timeline { display: block; width: 100%; min-width: 760px; height: auto; }
.timeline rect, .timeline circle, .timeline polygon { fill: var(--c); }
.timeline .cross { fill: none; stroke: var(--c); stroke-width: 2.2; stroke-linecap: round; }
.timeline .grid { stroke: var(--grid); stroke-width: 1; }
.timeline .base { stroke: var(--line); stroke-width: 1; }
.timeline .wait { stroke: var(--wait); stroke-width: 1; stroke-dasharray: 1.5 3; }
.timeline text { fill: var(--text); font-family: inherit; }
.timeline .label { text-anchor: end; }
.timeline .axis { text-anchor: middle; font-size: 11px; fill: var(--muted); }
.timeline .took { font-size: 11px; fill: var(--muted); }
.legend { margin: 10px 0 14px; padding: 0; list-style: none; display: flex; flex-wrap: wrap; gap: 4px 18px; }
.legend li { color: var(--muted); font-size: 13.5px; white-space: nowrap; }
.legend svg { width: 13px; height: 13px; margin-right: 6px; vertical-align: -2px; }
.legend rect, .legend circle { fill: var(--c); }
.legend path { fill: none; stroke: var(--c); stroke-width: 2.2; stroke-linecap: round; }
table { width: 100%; border-collapse: collapse; font-size: 14px; }
th {
  padding: 6px 12px 6px 0; border-bottom: 2px solid var(--line); color: var(--muted); font-size: 12.5px;
  font-weight: 600; text-align: left; white-space: nowrap;
}
td { padding: 8px 12px 8px 0; border-bottom: 1px solid var(--grid); vertical-align: top; }
th.number, td.number { text-align: right; white-space: nowrap; }
th.time, td.time { padding-right: 0; text-align: right; white-space: nowrap; }
td.id { min-width: 128px; overflow-wrap: anywhere; }
td.product { min-width: 190px; overflow-wrap: anywhere; }
td.product code { display: block; color: var(--muted); font-size: 12px; overflow-wrap: anywhere; }
td.reason { width: 38%; overflow-wrap: anywhere; }
.proof { color: var(--c); }
td.state { white-space: nowrap; color: var(--state-text, var(--c)); font-weight: 600; }
td.state svg { width: 12px; height: 12px; margin-right: 7px; vertical-align: -1px; }
td.state rect, td.state circle { fill: var(--c); }
td.state path { fill: none; stroke: var(--c); stroke-width: 2.2; stroke-linecap: round; }
tr.said td { padding-top: 0; }
tr.has-said td { border-bottom: 0; }
code, pre { font-family: ui-monospace, "SF Mono", Menlo, "DejaVu Sans Mono", Consolas, monospace; }
pre {
  margin: 0; padding: 10px 14px; max-height: 320px; overflow: auto; border: 1px solid var(--line);
  border-left: 4px solid var(--c); border-radius: 6px; background: var(--card); font-size: 12.5px; line-height: 1.45;
  white-space: pre-wrap; overflow-wrap: anywhere;
}
footer code { overflow-wrap: anywhere; }
footer { margin-top: 40px; padding-top: 12px; border-top: 1px solid var(--line); color: var(--muted); font-size: 13px; }
@media print, (min-width: 721px) {
  .ranks .number + :not(.number) { padding-left: 20px; }
}
@media screen and (max-width: 720px) {
  body { padding: 20px 14px 32px; font-size: 14px; }
  h1 { font-size: 21px; }
  h2 { margin: 24px 0 8px; }
  summary { margin: 24px 0 8px; }
  .counts { grid-template-columns: repeat(auto-fit, minmax(96px, 1fr)); gap: 6px; margin: 16px 0 8px; }
  .count { padding: 5px 10px; }
  .count b { font-size: 18px; }
  .count span { font-size: 12px; }
  thead { display: none; }
  table, tbody { display: block; }
  tr { padding: 6px 0; border-bottom: 1px solid var(--grid); display: grid; grid-template-columns: auto minmax(0, 1fr) auto; gap: 0 10px; }
  tr.has-said { padding-bottom: 2px; border-bottom: 0; }
  td, th.time, td.time { padding: 0; border: 0; }
  td.product { grid-column: 1 / -1; grid-row: 2; min-width: 0; }
  td.product code { font-size: 11px; }
  td.state { grid-column: 1; }
  td.id { min-width: 0; }
  td.reason { grid-column: 1 / -1; grid-row: 3; width: auto; color: var(--muted); font-size: 13px; }
  .ranks tr { display: flex; flex-wrap: wrap; gap: 0 14px; }
  .ranks td { flex: none; }
  .ranks td.id, .ranks td.reason { flex: 1 0 100%; }
  .ranks td.number { color: var(--muted); font-size: 13px; }
  .ranks td.number[data-name]::before { content: attr(data-name) " "; }
  tr.said td:first-child { display: none; }
  tr.said td { grid-column: 1 / -1; }
  pre { max-height: 120px; padding: 6px 10px; font-size: 11.5px; }
}
@page { margin: 14mm 12mm; }
@media print {
  * { -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  body { max-width: none; padding: 0; font-size: 10.5pt; }
  h2 { break-after: avoid; margin-top: 24px; }
  .timeline { min-width: 0; }
  .counts { grid-template-columns: repeat(auto-fit, minmax(118px, 1fr)); gap: 8px; }
  .count { padding: 8px 10px; }
  .count b { font-size: 17pt; }
  .count span { font-size: 8.5pt; }
  .legend li { font-size: 9pt; }
  .counts, .share, .flags, .legend { break-inside: avoid; }
  thead { display: table-header-group; }
  tr, .timeline g { break-inside: avoid; }
  tr.has-said { break-after: avoid; }
  table { font-size: 9pt; }
  td.product { min-width: 48mm; }
  td.product code { font-size: 7.5pt; }
  td.reason { width: 34%; }
  pre { max-height: none; font-size: 8pt; }
  .scroll { overflow: visible; }
}
)css";

}  // namespace zelor::results
