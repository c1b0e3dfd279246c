// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/html_assets.h"

namespace android::vus::workbench {

// Colours only support what words say. Text of devices may be long, and of any direction.
const std::string_view kHtmlStyle = R"css(
:root {
  color-scheme: light dark;
  --text: #1b1b1b; --page: #ffffff; --soft: #595959; --line: #c8c8c8; --head: #eeeeee;
  --allowed: #0b6b2b; --refused: #b00020;
}
@media (prefers-color-scheme: dark) {
  :root {
    --text: #e8e8e8; --page: #16181b; --soft: #a8a8a8; --line: #44484e; --head: #25292e;
    --allowed: #6fdc8c; --refused: #ff8a8a;
  }
}
body { margin: 1.5rem; background: var(--page); color: var(--text); font: 15px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.4rem; overflow-wrap: anywhere; }
p.warning { border-left: 4px solid var(--refused); padding-left: .7rem; font-weight: bold; }
table { border-collapse: collapse; width: 100%; margin: .5rem 0 2rem; }
caption { text-align: left; font-weight: bold; padding: .4rem 0; }
th, td { border: 1px solid var(--line); padding: .3rem .5rem; text-align: left; vertical-align: top; }
th { background: var(--head); position: sticky; top: 0; }
th button { font: inherit; font-weight: bold; color: inherit; background: none; border: 0; padding: 0; cursor: pointer; }
th[aria-sort=ascending] button::after { content: " \2191"; }
th[aria-sort=descending] button::after { content: " \2193"; }
td { unicode-bidi: isolate; white-space: nowrap; }
td.text { white-space: normal; overflow-wrap: anywhere; min-width: 8em; }
td ul { margin: .2rem 0 0; padding: 0; list-style: none; color: var(--soft); font-size: .88em; }
tr.allowed strong { color: var(--allowed); }
tr.refused strong { color: var(--refused); }
table.brief td ul { display: none; }
.tools { display: flex; flex-wrap: wrap; gap: .4rem 1.2rem; align-items: center; }
.tools input, .tools select { font: inherit; }
:focus-visible { outline: 3px solid #3b82f6; outline-offset: 2px; }
@media print {
  :root {
    color-scheme: light;
    --text: #000000; --page: #ffffff; --soft: #333333; --line: #777777; --head: #ffffff;
    --allowed: #000000; --refused: #000000;
  }
  body { margin: 0; font-size: 9pt; }
  .tools label { display: none; }
  th { position: static; }
  thead { display: table-header-group; }
  tr { break-inside: avoid; }
}
)css";

// It makes the controls itself, so that there are none where it does not run.
const std::string_view kHtmlScript = R"js(
'use strict';
(() => {
  const collator = new Intl.Collator();

  const element = (name, text, more = {}) =>
    Object.assign(document.createElement(name), {textContent: text}, more);

  const labelled = (text, control) => {
    const label = element('label', text + ' ');
    label.append(control);
    return label;
  };

  class LiveTable {
    constructor(table) {
      this.table = table;
      this.body = table.tBodies[0];
      this.rows = [...this.body.rows];
      this.headers = [...table.tHead.rows[0].cells];
      this.choices = [];
      this.headers.forEach((header, column) => this.makeSortable(header, column));
      this.makeTools();
      this.filter();
    }

    makeSortable(header, column) {
      const button = element('button', header.textContent, {type: 'button'});
      button.addEventListener('click', () => this.sort(header, column));
      header.replaceChildren(button);
      header.setAttribute('aria-sort', 'none');
    }

    makeTools() {
      const tools = element('div', '', {className: 'tools'});
      tools.setAttribute('role', 'group');
      tools.setAttribute('aria-label', this.table.caption.textContent);
      this.words = element('input', '', {type: 'search'});
      this.words.addEventListener('input', () => this.filter());
      tools.append(labelled('Rows with the words', this.words));
      this.headers.forEach((header, column) => {
        if (header.dataset.kind === 'choice') tools.append(this.makeChoice(header, column));
      });
      if (this.body.querySelector('ul')) tools.append(this.makeDetails());
      this.count = element('output', '');
      tools.append(this.count);
      this.table.before(tools);
    }

    makeChoice(header, column) {
      const select = element('select', '');
      const values = new Set(this.rows.map(row => this.textOf(row, column)));
      for (const value of ['', ...[...values].sort(collator.compare)]) {
        select.append(element('option', value || 'all', {value}));
      }
      select.addEventListener('change', () => this.filter());
      this.choices.push({select, column});
      return labelled(header.textContent, select);
    }

    makeDetails() {
      const box = element('input', '', {type: 'checkbox', checked: true});
      box.addEventListener('change', () => this.table.classList.toggle('brief', !box.checked));
      return labelled('Details', box);
    }

    textOf(row, column) {
      return row.cells[column].firstChild?.textContent ?? '';
    }

    keyOf(row, column, kind) {
      const cell = row.cells[column];
      const key = cell.dataset.key ?? this.textOf(row, column);
      if (kind !== 'number') return key;
      return key === '' ? Infinity : Number(key);
    }

    sort(header, column) {
      const kind = header.dataset.kind;
      const descending = header.getAttribute('aria-sort') === 'ascending';
      for (const each of this.headers) each.setAttribute('aria-sort', 'none');
      header.setAttribute('aria-sort', descending ? 'descending' : 'ascending');
      const keyed = this.rows.map(row => [this.keyOf(row, column, kind), row]);
      const numbers = (one, other) => one === other ? 0 : one < other ? -1 : 1;
      const compare = kind === 'number' ? numbers : collator.compare;
      keyed.sort(([one], [other]) => descending ? compare(other, one) : compare(one, other));
      this.rows = keyed.map(([, row]) => row);
      // One by one: a call takes only so many arguments.
      for (const row of this.rows) this.body.append(row);
    }

    filter() {
      const words = this.words.value.toLowerCase().split(/\s+/).filter(word => word !== '');
      let shown = 0;
      for (const row of this.rows) {
        const fits = this.choices.every(({select, column}) =>
          select.value === '' || select.value === this.textOf(row, column));
        const text = fits && words.length > 0 ? row.textContent.toLowerCase() : '';
        row.hidden = !fits || !words.every(word => text.includes(word));
        if (!row.hidden) ++shown;
      }
      this.count.textContent = `${shown} of ${this.rows.length} rows`;
    }
  }

  document.addEventListener('DOMContentLoaded', () => {
    for (const table of document.querySelectorAll('table')) new LiveTable(table);
  });
})();
)js";

}  // namespace android::vus::workbench
