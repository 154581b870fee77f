#include "station/record/HtmlStyle.h"

namespace station::record {

// No '<' and no '&' in it: the page is read as XML, too.
const char* htmlStyle()
{
    return R"css(
:root{color-scheme:light dark;
--bg:#f6f7f8;--panel:#fff;--ink:#1c2127;--soft:#57606a;--line:#d5dbe1;--code:#f0f2f4;
--pass:#1a7f37;--fail:#b3261e;--error:#9a4a00;--timeout:#7a5b00;--aborted:#6639ba;--skipped:#59636e;
--on:#fff;--band:#cdead4;--limit:#3c6e4a;--link:#0b5cad}
@media (prefers-color-scheme:dark){:root{
--bg:#111417;--panel:#191d22;--ink:#e4e8ec;--soft:#9ba5af;--line:#323942;--code:#22272d;
--pass:#4ac26b;--fail:#ff8178;--error:#f5a05a;--timeout:#e0b83f;--aborted:#bf9bff;--skipped:#9ba5af;
--on:#111417;--band:#1e4429;--limit:#7fc795;--link:#79b8ff}}
*{box-sizing:border-box}
html{-webkit-text-size-adjust:100%}
body{margin:0;background:var(--bg);color:var(--ink);font:15px/1.45 system-ui,-apple-system,"Segoe UI",Roboto,"Noto Sans",sans-serif}
.page{max-width:64rem;margin:0 auto;padding:1.25rem 1rem 3rem}
h1,h2,h3,h4,h5,p,dl,dd,ol,ul{margin:0;padding:0}
h1{font-size:1.6rem;line-height:1.2;font-weight:650}
h2{font-size:1.15rem;margin:2rem 0 .6rem;font-weight:650}
h3{font-size:1rem;font-weight:650}
h4{font-size:.95rem;font-weight:600}
h5{font-size:.85rem;font-weight:600;color:var(--soft)}
h5 .chip{margin-left:.4rem}
a{color:var(--link)}
code,.mono{font-family:ui-monospace,"SF Mono",Menlo,Consolas,"DejaVu Sans Mono",monospace;font-size:.86em;overflow-wrap:anywhere}
.soft{color:var(--soft)}
.hidden{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:inset(50%);white-space:nowrap}
.pass{--v:var(--pass)}.fail{--v:var(--fail)}.error{--v:var(--error)}
.timeout{--v:var(--timeout)}.aborted{--v:var(--aborted)}.skipped{--v:var(--skipped)}
.chip{display:inline-block;min-width:5.8em;justify-self:start;padding:.12em .5em;border-radius:3px;background:var(--v);color:var(--on);
font-size:.72rem;font-weight:700;letter-spacing:.04em;text-align:center;line-height:1.5;white-space:nowrap}
.chip.pass,.chip.skipped,.past .chip{background:transparent;color:var(--v);box-shadow:inset 0 0 0 1px var(--v)}
.top{background:var(--panel);border:1px solid var(--line);border-left:8px solid var(--v);border-radius:6px;padding:1.1rem 1.25rem}
.top .title{display:flex;flex-wrap:wrap;gap:.4rem 1rem;align-items:center}
.top .chip{font-size:1.35rem;padding:.15em .6em;background:var(--v);color:var(--on);box-shadow:none}
.lead{font-size:1.1rem;margin:.6rem 0 0;overflow-wrap:anywhere}
.why,.beside{margin:.15rem 0 0;color:var(--soft);overflow-wrap:anywhere}
.strip{display:flex;gap:1px;height:10px;margin:.9rem 0 0;border-radius:3px;overflow:hidden}
.strip span{flex:1 1 0;min-width:1px;background:var(--v)}
.strip .pass,.strip .skipped{opacity:.45}
.facts{display:grid;grid-template-columns:repeat(auto-fill,minmax(11rem,1fr));gap:.6rem 1.25rem;margin:1rem 0 0}
.facts dt,.origin dt{font-size:.75rem;color:var(--soft)}
.facts dd,.origin dd{overflow-wrap:anywhere}
.card{background:var(--panel);border:1px solid var(--line);border-left:5px solid var(--v);border-radius:6px;padding:.9rem 1.1rem;margin:0 0 .8rem}
.card h3{display:flex;flex-wrap:wrap;gap:.3rem .7rem;align-items:baseline;font-size:1.08rem}
.where{color:var(--soft);font-size:.87rem;margin:.15rem 0 0;overflow-wrap:anywhere}
.reason{font-size:1.05rem;font-weight:600;color:var(--v);margin:.55rem 0 0;overflow-wrap:anywhere}
.meaning{color:var(--soft);font-size:.87rem;margin:.1rem 0 0}
table{border-collapse:collapse;width:100%;margin:.5rem 0 0;font-size:.9rem}
caption{text-align:left;color:var(--soft);font-size:.8rem;padding:0 0 .15rem}
th,td{text-align:left;vertical-align:top;padding:.25rem .8rem .25rem 0;border-top:1px solid var(--line);overflow-wrap:anywhere}
thead th{border-top:0;font-size:.75rem;font-weight:500;color:var(--soft)}
tbody th{font-weight:500}
td.num{font-variant-numeric:tabular-nums}
.bad{color:var(--fail);font-weight:650}
.measured td:nth-child(4),.measured th:nth-child(4){width:11rem;padding-right:0}
.card .measured{table-layout:fixed}.card .measured td:nth-child(4),.card .measured th:nth-child(4){width:21.25rem}
.measured .miss{display:block;font-size:.82rem;font-weight:400}
.chart{display:block;width:10rem;height:1rem;margin:.15rem 0}
.chart.large{width:100%;max-width:21.25rem;height:auto;margin:0}
.chart .axis{fill:var(--line)}.chart .band{fill:var(--band)}.chart .limit{fill:var(--limit)}
.chart .dot{fill:var(--v);stroke:var(--panel);stroke-width:1}
.chart .cross{fill:none;stroke:var(--v);stroke-width:3;stroke-linecap:round}
.chart text{font:11px system-ui,sans-serif;fill:var(--soft)}
.chart text.got{font-weight:700;fill:var(--ink)}
details{margin:.5rem 0 0}
summary{cursor:pointer;color:var(--soft);font-size:.84rem;width:fit-content}
summary:hover{color:var(--ink)}
:focus-visible{outline:2px solid var(--link);outline-offset:2px;border-radius:2px}
.frames{font-size:.82rem}
.frames td{padding-top:.15rem;padding-bottom:.15rem}
.frames td:nth-child(1){width:5.5rem;white-space:nowrap;color:var(--soft)}
.frames td:nth-child(2){width:6.5rem;white-space:nowrap}
.frames td:nth-child(3){width:32%}
.phase{margin:1rem 0 0}
.phase h3{margin:0 0 .4rem;display:flex;gap:.7rem;align-items:baseline}
.group{background:var(--panel);border:1px solid var(--line);border-radius:6px;margin:0 0 .8rem;padding:.7rem 1.1rem .4rem}
.group h4{display:flex;flex-wrap:wrap;gap:.3rem .7rem;align-items:baseline}
.group h5{margin:.6rem 0 0}
.steps{list-style:none;margin:.4rem 0 0}
.steps li{border-top:1px solid var(--line);padding:.45rem 0}
.head{display:grid;grid-template-columns:5.6rem minmax(10rem,1fr) minmax(8rem,1fr) 5rem;gap:.1rem .8rem;align-items:baseline}
.head .name{font-weight:550;overflow-wrap:anywhere}
.head .took{text-align:right;color:var(--soft);font-size:.84rem;font-variant-numeric:tabular-nums;white-space:nowrap}
.body{margin:0 0 0 6.4rem}
.body .reason{font-size:.92rem;font-weight:500;margin:.2rem 0 0}
.body table{margin:.25rem 0 0;font-size:.86rem}
.body .measured thead{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:inset(50%)}
.body .measured th,.body .measured td{border-top:0;padding-top:.05rem;padding-bottom:.05rem}
.body .measured th{width:26%;font-weight:400}.body .measured td:nth-child(2){width:26%}
.attempt{margin:.5rem 0 0;font-size:.9rem}
.attempt .chip{font-size:.66rem;margin-right:.3rem}
.repeated{background:var(--panel);border:1px solid var(--line);border-radius:6px;padding:.7rem 1.1rem;list-style:none}
.repeated li{padding:.15rem 0;overflow-wrap:anywhere}
.origin{display:grid;grid-template-columns:repeat(auto-fill,minmax(19rem,1fr));gap:.5rem 1.25rem;font-size:.87rem}
.legend{display:grid;grid-template-columns:max-content 1fr;gap:.35rem .8rem;font-size:.87rem;align-items:baseline}
@media (max-width:40rem){
.page{padding:.75rem .6rem 2rem}.top,.card,.group{padding:.8rem .8rem}
.facts{grid-template-columns:1fr 1fr}
.head{grid-template-columns:max-content 1fr max-content}
.head code{grid-column:1/-1;order:9}
.body{margin-left:0}
.measured,.measured tbody,.measured tr,.measured td,.measured th,.frames,.frames tbody,.frames tr,.frames td{display:block;width:auto !important}
.measured thead,.frames thead{display:none}
.measured tr,.frames tr{border-top:1px solid var(--line);padding:.3rem 0}
.measured th,.measured td,.frames th,.frames td{border:0;padding:.05rem 0}
.measured td[data-label]::before{content:attr(data-label) ": ";color:var(--soft);font-weight:400}
.frames td:nth-child(1),.frames td:nth-child(2){display:inline-block;margin-right:.8rem}
.origin{grid-template-columns:1fr}}
@media print{
:root{--bg:#fff;--panel:#fff;--ink:#000;--soft:#444;--line:#bbb;--on:#fff;--pass:#1a7f37;--fail:#b3261e;--error:#9a4a00;
--timeout:#7a5b00;--aborted:#6639ba;--skipped:#59636e;--band:#cdead4;--limit:#3c6e4a;color-scheme:light}
body{font-size:10pt;print-color-adjust:exact;-webkit-print-color-adjust:exact}
.page{max-width:none;padding:0}
.card,.steps li{break-inside:avoid}h2,h3,h4{break-after:avoid}
details::details-content{content-visibility:visible;display:block}}
)css";
}

}  // namespace station::record
