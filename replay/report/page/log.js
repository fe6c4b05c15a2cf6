// The decision log of the run in focus: what lies in the visible part, a page at a time.

const kPageSize = 60;

class DecisionLog {
  constructor(view, node) {
    this.view = view;
    this.page = 0;
    this.kind = element('select', {'aria-label': 'Which calls', onchange: () => this.restart()},
        element('option', {value: 'actions'}, 'Hints and locks'), element('option', {value: 'all'}, 'All calls'));
    this.words = element('input', {type: 'search', placeholder: 'Search', 'aria-label': 'Search the log',
      oninput: () => this.restart()});
    this.follows = element('input', {type: 'checkbox', checked: true, onchange: () => this.restart()});
    this.earlier = element('button', {type: 'button', onclick: () => this.turn(-1)}, 'Earlier');
    this.later = element('button', {type: 'button', onclick: () => this.turn(1)}, 'Later');
    this.position = element('span', {class: 'quiet', role: 'status'});
    this.body = element('tbody');
    this.caption = element('caption');
    node.append(
        element('div', {class: 'controls'}, this.kind, this.words,
            element('label', {}, this.follows, 'visible part only')),
        element('table', {}, this.caption, element('thead', {}, element('tr', {},
            element('th', {scope: 'col'}, 'Time, s'), element('th', {scope: 'col'}, 'Call, and what caused it'))), this.body),
        element('div', {class: 'controls'}, this.earlier, this.later, this.position));
    this.node = node;
    this.restart();
  }

  textOf(column, entry) {
    const log = this.view.focusRun().log;
    return log.texts[log[column][entry]];
  }

  range() {
    const times = this.view.focusRun().log.time;
    if (!this.follows.checked) return [0, times.length];
    return [lowerBound(times, this.view.start * kNsPerSecond), lowerBound(times, this.view.stop * kNsPerSecond)];
  }

  matches(entry, words) {
    const run = this.view.focusRun();
    if (this.kind.value === 'actions' && run.log.action[entry] === 0) return false;
    return words === '' || (this.textOf('what', entry) + ' ' + this.textOf('cause', entry)).toLowerCase().includes(words);
  }

  restart() {
    const words = this.words.value.trim().toLowerCase();
    const [from, to] = this.range();
    this.entries = [];
    for (let entry = from; entry < to; ++entry) {
      if (this.matches(entry, words)) this.entries.push(entry);
    }
    this.page = 0;
    this.showChoice();
  }

  turn(step) {
    this.page += step;
    this.render();
  }

  // Turns to the page of the chosen entry, or of the chosen frame's first.
  showChoice() {
    const place = this.entries.findIndex(entry => this.isCurrent(entry));
    if (place >= 0) this.page = Math.floor(place / kPageSize);
    this.render();
    const row = this.body.querySelector('[aria-current]');
    if (row) keepVisible(row);
  }

  isCurrent(entry) {
    const choice = this.view.chosen;
    if (!choice) return false;
    if (choice.entry >= 0) return choice.entry === entry;
    return this.view.focusRun().log.frame[entry] === choice.frame;
  }

  render() {
    const run = this.view.focusRun();
    const focused = document.activeElement && document.activeElement.dataset.entry;
    const pages = Math.max(1, Math.ceil(this.entries.length / kPageSize));
    this.page = Math.min(Math.max(this.page, 0), pages - 1);
    const visible = this.entries.slice(this.page * kPageSize, (this.page + 1) * kPageSize);
    this.caption.textContent = run.label;
    this.body.replaceChildren(...visible.map(entry => this.row(entry)));
    this.earlier.disabled = this.page === 0;
    this.later.disabled = this.page === pages - 1;
    this.position.textContent = this.entries.length === 0 ? 'No entry here.' :
        grouped(this.page * kPageSize + 1) + '\u2013' + grouped(this.page * kPageSize + visible.length) +
        ' of ' + grouped(this.entries.length);
    if (focused !== undefined) this.focusEntry(focused);
  }

  row(entry) {
    const run = this.view.focusRun();
    const cause = this.textOf('cause', entry);
    const cell = element('td', {}, this.textOf('what', entry));
    if (cause !== '') cell.append(element('br'), element('span', {class: 'quiet'}, cause));
    return element('tr', {'aria-current': this.isCurrent(entry) ? 'true' : null},
        element('td', {}, element('button', {type: 'button', 'data-entry': entry, title: 'Show in the charts',
          onclick: () => this.open(entry)}, exactSeconds(run.log.time[entry]))), cell);
  }

  open(entry) {
    const run = this.view.focusRun();
    this.view.choose(run.log.frame[entry], entry);
    reveal(this.view, run.log.time[entry]);
    this.focusEntry(entry);
    const isBeside = window.matchMedia('(min-width: 1100px)').matches;
    if (!isBeside) document.getElementById('panel-frame-time').scrollIntoView({block: 'start'});
  }

  focusEntry(entry) {
    const button = this.body.querySelector('[data-entry="' + Number(entry) + '"]');
    if (button) button.focus({preventScroll: true});
  }

  focusFirst() {
    this.restart();  // the visible part may just have changed
    const row = this.body.querySelector('[aria-current] button') || this.body.querySelector('button');
    if (row) row.focus();
  }
}

// Scrolls the column beside the charts, never the page.
function keepVisible(row) {
  const side = document.getElementById('side');
  if (side.scrollHeight <= side.clientHeight) return;
  const box = row.getBoundingClientRect();
  const frame = side.getBoundingClientRect();
  if (box.top < frame.top || box.bottom > frame.bottom) side.scrollTop += box.top - frame.top - frame.height / 2;
}

let theLog = null;

function focusLog() {
  if (theLog) theLog.focusFirst();
}
