#include "tool/doctor/html_style.h"

namespace Kes::tool {

const char* const html_style = R"(:root {
  color-scheme: light dark;
  --page: #f6f7f9; --card: #ffffff; --text: #1c2430; --quiet: #566173; --line: #cfd6e0;
  --ok: #1b7a3d; --note: #1f5fae; --warning: #9a5b00; --error: #b3261e; --skipped: #646f80;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #14181f; --card: #1d232d; --text: #e8ecf2; --quiet: #a5b0c0; --line: #3a4454;
    --ok: #6fce8f; --note: #84b6f4; --warning: #f0b357; --error: #ff8f87; --skipped: #9aa5b5;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text);
  font: 1rem/1.5 system-ui, "Segoe UI", Roboto, "Noto Sans", sans-serif; }
main { max-width: 68rem; margin: 0 auto; padding: 1.5rem 1rem 3rem; }
h1 { margin: 0; font-size: 1.6rem; }
h2 { margin: 2rem 0 .6rem; font-size: 1.2rem; }
h3 { margin: 1.2rem 0 .4rem; font-size: 1rem; }
p, dd, dt, li { overflow-wrap: anywhere; }
.summary { margin: .2rem 0 1.2rem; font-size: 1.1rem; }
figure, .lines { margin: 0; background: var(--card); border: 1px solid var(--line); border-radius: .6rem; }
figure { padding: 1rem; }
figure svg { display: block; width: 100%; height: auto; margin: 0 auto; }
.tall { display: none !important; max-width: 20rem; }
@media (max-width: 45rem) { .wide { display: none !important; } .tall { display: block !important; } }
.lines > div { display: grid; grid-template-columns: 7rem minmax(0, 1fr); gap: .2rem .8rem;
  padding: .6rem .9rem; }
.lines > div + div { border-top: 1px solid var(--line); }
.lines dt, .lines dd { margin: 0; }
.lines .remedy { grid-column: 2; color: var(--quiet); }
@media (max-width: 30rem) { .lines > div { grid-template-columns: 1fr; } .lines .remedy { grid-column: 1; } }
.state { font-weight: 600; white-space: nowrap; }
.state svg { width: 1.15em; height: 1.15em; margin-right: .4em; vertical-align: -.2em; }
.ok { color: var(--ok); } .note { color: var(--note); } .warning { color: var(--warning); }
.error { color: var(--error); } .skipped { color: var(--skipped); }
svg text { fill: var(--text); font: 600 17px system-ui, "Segoe UI", Roboto, "Noto Sans", sans-serif;
  text-anchor: middle; }
svg .word { fill: currentColor; font-weight: 600; font-size: 15px; }
.box { fill: var(--card); stroke: currentColor; stroke-width: 2; }
.box.broken { stroke-width: 4; }
.hole { stroke: var(--card); stroke-width: 2.5; }
.connector { stroke: var(--quiet); stroke-width: 3; }
.connector.broken { stroke: var(--error); stroke-dasharray: 7 6; }
.connector.after { stroke: var(--line); }
.cross { stroke: var(--error); stroke-width: 5; stroke-linecap: round; }
footer { margin-top: 2.5rem; color: var(--quiet); font-size: .9rem; }
@media print {
  :root { --page: #ffffff; --card: #ffffff; --text: #000000; --quiet: #333333; --line: #999999;
    --ok: #14602f; --note: #174a88; --warning: #7a4800; --error: #941d17; --skipped: #444444; }
  main { max-width: none; padding: 0; }
  figure, .lines > div { break-inside: avoid; }
  h2, h3 { break-after: avoid; }
}
)";

const char* const html_symbols = R"(<svg width="0" height="0" style="position:absolute" aria-hidden="true">
<symbol id="state-ok" viewBox="0 0 24 24"><circle cx="12" cy="12" r="10" fill="none" stroke="currentColor"
 stroke-width="2.5"/>
<path d="M7 12.5l3.5 3.5 6.5-7.5" fill="none" stroke="currentColor" stroke-width="2.5"/></symbol>
<symbol id="state-note" viewBox="0 0 24 24"><circle cx="12" cy="12" r="10" fill="none" stroke="currentColor"
 stroke-width="2.5"/><path d="M12 11v6M12 6.5v2" stroke="currentColor" stroke-width="2.5"/></symbol>
<symbol id="state-warning" viewBox="0 0 24 24"><path d="M12 3L22 21H2z" fill="none" stroke="currentColor"
 stroke-width="2.5" stroke-linejoin="round"/>
<path d="M12 9v6M12 16.5v2" stroke="currentColor" stroke-width="2.5"/></symbol>
<symbol id="state-error" viewBox="0 0 24 24"><path d="M8 2h8l6 6v8l-6 6H8l-6-6V8z" fill="currentColor"/>
<path d="M8 8l8 8M16 8l-8 8" class="hole"/></symbol>
<symbol id="state-skipped" viewBox="0 0 24 24"><circle cx="12" cy="12" r="10" fill="none"
 stroke="currentColor" stroke-width="2.5" stroke-dasharray="4 3"/>
<path d="M7 12h10" stroke="currentColor" stroke-width="2.5"/></symbol>
</svg>
)";

} // namespace Kes::tool
