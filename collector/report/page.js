'use strict';
// Everything on the page reads without this script. It adds: sorting, filtering, a pointer that reads the plots, and
// the choice of colours.

// --- tables that sort

const valueOf = (row, column) => {
  const cell = row.cells[column];
  return cell.dataset.v === undefined ? cell.textContent : Number(cell.dataset.v);
};

const compare = (a, b) => (typeof a === 'number' && typeof b === 'number' ? a - b : String(a).localeCompare(String(b)));

function sortBy(table, column, header) {
  const body = table.tBodies[0];
  const rows = [...body.rows];
  // Numbers begin with the largest: that is what people look for.
  const first = header.classList.contains('n') ? 'descending' : 'ascending';
  const other = first === 'descending' ? 'ascending' : 'descending';
  const order = header.getAttribute('aria-sort') === first ? other : first;
  const sign = order === 'ascending' ? 1 : -1;
  rows.sort((a, b) => sign * compare(valueOf(a, column), valueOf(b, column)));
  body.append(...rows);
  for (const cell of table.tHead.rows[0].cells) cell.removeAttribute('aria-sort');
  header.setAttribute('aria-sort', order);
}

for (const table of document.querySelectorAll('table.sorts')) {
  [...table.tHead.rows[0].cells].forEach((header, column) => {
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = header.textContent;
    button.addEventListener('click', () => sortBy(table, column, header));
    header.replaceChildren(button);
  });
}

// --- the filter of the worst exchanges

const worst = document.getElementById('worst-table');
if (worst) {
  const filters = document.getElementById('filters');
  const containing = document.getElementById('containing');
  const kind = document.getElementById('kind');
  const rows = [...worst.tBodies[0].rows].map((row) => ({row, text: row.textContent.toLowerCase()}));
  const filter = () => {
    const words = containing.value.toLowerCase().split(/\s+/);
    let shown = 0;
    for (const {row, text} of rows) {
      const wanted = (!kind.value || row.classList.contains(kind.value)) && words.every((word) => text.includes(word));
      row.hidden = !wanted;
      if (wanted) ++shown;
    }
    document.getElementById('shown').textContent = `${shown} of ${rows.length} shown`;
  };
  filters.addEventListener('input', filter);
  filters.addEventListener('submit', (event) => event.preventDefault());
  filters.hidden = false;
  filter();
}

// --- reading a plot: its columns are the rows of a table

const tip = document.getElementById('tip');

function makeReadable(plot) {
  const table = document.getElementById(plot.dataset.table);
  if (!table || table.tBodies[0].rows.length === 0) return;
  const rows = table.tBodies[0].rows;
  const titles = [...table.tHead.rows[0].cells].map((cell) => cell.textContent);
  const cursor = document.createElementNS('http://www.w3.org/2000/svg', 'line');
  let at = -1;

  const show = (column, x, y) => {
    at = Math.max(0, Math.min(rows.length - 1, column));
    const cells = [...rows[at].cells].map((cell, i) => `${titles[i]}: ${cell.textContent}`);
    tip.textContent = cells.join('\n');
    tip.hidden = false;
    const left = Math.min(x + 14, document.documentElement.clientWidth - tip.offsetWidth - 4);
    const top = Math.min(y + 14, window.innerHeight - tip.offsetHeight - 4);
    tip.style.left = `${Math.max(4, left)}px`;
    tip.style.top = `${Math.max(4, top)}px`;
    const middle = `${(100 * (at + 0.5)) / rows.length}%`;
    cursor.setAttribute('x1', middle);
    cursor.setAttribute('x2', middle);
    plot.append(cursor);
  };
  const hide = () => {
    tip.hidden = true;
    cursor.remove();
  };
  cursor.setAttribute('class', 'cursor');
  cursor.setAttribute('y1', '0');
  cursor.setAttribute('y2', String(plot.getAttribute('height') - 24));

  plot.addEventListener('pointermove', (event) => {
    const box = plot.getBoundingClientRect();
    show(Math.floor(((event.clientX - box.left) / box.width) * rows.length), event.clientX, event.clientY);
  });
  plot.addEventListener('pointerleave', hide);
  plot.addEventListener('blur', hide);
  plot.addEventListener('keydown', (event) => {
    const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (event.key === 'Escape') hide();
    if (!step) return;
    event.preventDefault();
    const box = plot.getBoundingClientRect();
    const next = Math.max(0, Math.min(rows.length - 1, at + step));
    show(next, box.left + ((next + 0.5) / rows.length) * box.width, box.top + box.height / 3);
  });
  plot.setAttribute('tabindex', '0');
}

document.querySelectorAll('svg.plot').forEach(makeReadable);
tip.setAttribute('role', 'status');

// --- colours

const themes = [
  ['', 'as the system'],
  ['dark', 'dark'],
  ['light', 'light'],
];
const themeButton = document.getElementById('theme');

// Where storage is refused, as for files in some browsers, the choice lasts as long as the page is open.
const remembered = (write) => {
  try {
    if (write !== undefined) localStorage.setItem('dnspair-theme', write);
    return localStorage.getItem('dnspair-theme') || '';
  } catch {
    return '';
  }
};

let theme = Math.max(0, themes.findIndex(([name]) => name === remembered()));
const applyTheme = () => {
  const [name, text] = themes[theme];
  if (name) {
    document.documentElement.dataset.theme = name;
  } else {
    delete document.documentElement.dataset.theme;
  }
  themeButton.querySelector('span').textContent = text;
};
themeButton.addEventListener('click', () => {
  theme = (theme + 1) % themes.length;
  remembered(themes[theme][0]);
  applyTheme();
});
themeButton.hidden = false;
applyTheme();
