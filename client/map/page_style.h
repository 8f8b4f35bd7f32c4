// SPDX-License-Identifier: MIT
// What a page looks like, on paper, on a phone and in the dark. The colours of the kinds of units
// stand before it as --NAME. A cell's --f is how high it is filled by what is pinned, --b by what
// is in the cache besides.
#pragma once

namespace client {

constexpr char kPageStyle[] = R"css(
:root{color-scheme:light dark;--paper:#fff;--ink:#1b1f24;--dim:#57606a;--line:#d0d7de;
--good:#00315f;--warn:#8a4600;--bad:#a32f00}
@media screen and (prefers-color-scheme:dark){:root{--paper:#14171a;--ink:#e6e9ec;--dim:#a2abb5;
--line:#3a4149;--good:#a9d3f5;--warn:#f0b232;--bad:#ff9a6b}}
*{box-sizing:border-box}
body{margin:0 auto;max-width:64rem;padding:1rem;background:var(--paper);color:var(--ink);
font:1rem/1.5 system-ui,sans-serif;overflow-wrap:anywhere}
h1{font-size:1.6rem;line-height:1.2;margin:.5rem 0}
h2{font-size:1.15rem;margin:0 0 .5rem}
p{margin:.25rem 0}
section{border-top:1px solid var(--line);margin-top:1.5rem;padding-top:1rem}
.dim{color:var(--dim)}
.state{display:inline-block;margin:.5rem 0;padding:.25rem .75rem;border:2px solid;
border-radius:.5rem;font-weight:600}
.good{color:var(--good)}.warn{color:var(--warn)}.bad{color:var(--bad)}
dl{display:grid;grid-template-columns:minmax(7rem,max-content) 1fr;gap:.1rem 1rem;margin:.5rem 0}
dt{color:var(--dim)}dd{margin:0}
table{width:100%;border-collapse:collapse;font-size:.9rem;margin:.5rem 0}
th,td{padding:.3rem .4rem;border-bottom:1px solid var(--line);text-align:left;vertical-align:top}
thead th{color:var(--dim);font-weight:600;overflow-wrap:normal}
tbody th{font-weight:400}
.number{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
thead .number{white-space:normal}
.remark{color:var(--bad);padding-left:1rem}
.legend{list-style:none;display:grid;grid-template-columns:repeat(auto-fit,minmax(min(100%,26rem),1fr));
gap:.1rem 1rem;padding:0;margin:.5rem 0;font-size:.9rem}
.legend li{display:flex;gap:.5rem}
.key{flex:none;width:.9rem;height:.9rem;margin-top:.25rem;border:1px solid var(--dim);print-color-adjust:exact;forced-color-adjust:none}
.map{margin:.75rem 0;font-size:.75rem}
.row{display:flex;align-items:center;height:.8rem}
.at{flex:0 0 5.5rem;padding-right:.5rem;text-align:right;color:var(--dim);white-space:nowrap}
.cells{flex:1;display:flex;position:relative;height:100%}
.cells b{background:linear-gradient(to top,var(--c,var(--pinned)) var(--f,0%),
var(--besides) 0 var(--b,0%),var(--neither) 0);min-width:0;
print-color-adjust:exact;forced-color-adjust:none}
.p1{--f:25%}.p2{--f:50%}.p3{--f:75%}.p4{--f:100%}
.r1{--b:25%}.r2{--b:50%}.r3{--b:75%}.r4{--b:100%}
.x{--c:var(--absent)}
.cells i{display:none;position:absolute;left:0;right:0;top:calc(100% + 2px);z-index:1;
padding:.4rem .6rem;border:1px solid var(--dim);border-radius:.3rem;background:var(--paper);
font-style:normal;font-weight:400;font-size:.85rem;line-height:1.4;pointer-events:none}
.cells b:hover i,.cells b:focus i{display:block}
.cells b:hover,.cells b:focus{outline:2px solid var(--ink);outline-offset:-1px;z-index:1}
.gap{margin:.2rem 0 .2rem 5.5rem;color:var(--dim);font-style:italic}
@media (max-width:30rem){.at{flex-basis:4.6rem;font-size:.7rem}.gap{margin-left:4.6rem}
body{padding:.75rem}th,td{padding:.3rem .25rem}dl{grid-template-columns:1fr 1fr}}
)css";

}  // namespace client
