// The page of a fleet: settings against a base, over many captures.

const kThousandths = 1000;  // what the values are counted in
const kFirstFigures = ['repeated_vsyncs', 'latency_p50_ms'];
const kWorstRows = 50;
const kChartSteps = 200;
const kMostChoices = 100;   // of a filter

let fleet;
const chosen = {figure: 0, setting: 1, x: 0, y: 1, group: '', filters: {}};
const charts = {};

function shown(value) {
  return value === null || Number.isNaN(value) ? '\u2013' : String(Number(value.toFixed(3))).replace('-', '\u2212');
}

function signed(value) {
  return (value > 0 ? '+' : '') + shown(value);
}

function unitOf(figure) {
  return figure.label + (figure.unit ? ', ' + figure.unit : '');
}

// Captures that pass the filters.
function visibleCaptures() {
  const filters = Object.entries(chosen.filters).filter(([, value]) => value !== '');
  const all = fleet.names.map((name, capture) => capture);
  return filters.length === 0 ? all : all.filter(capture => filters.every(
      ([column, value]) => fleet.columns[column].values[fleet.columns[column].of[capture]] === value));
}

// [capture, change] of those that were played under both.
function changesOf(figure, setting, captures) {
  const base = fleet.values[fleet.base][figure];
  const changes = fleet.values[setting][figure];
  return captures.filter(capture => base[capture] !== null && changes[capture] !== null)
      .map(capture => [capture, setting === fleet.base ? 0 : changes[capture] / kThousandths]);
}

function meanOf(values) {
  return values.length === 0 ? NaN : values.reduce((sum, value) => sum + value, 0) / values.length;
}

function meanValue(figure, setting, captures) {
  const pairs = changesOf(figure, setting, captures);
  return meanOf(pairs.map(([capture, change]) => fleet.values[fleet.base][figure][capture] / kThousandths + change));
}

function spreadOf(pairs, isLess) {
  const changes = pairs.map(pair => pair[1]);
  const worse = changes.filter(change => isLess ? change > 0 : change < 0).length;
  const better = changes.filter(change => isLess ? change < 0 : change > 0).length;
  return [grouped(pairs.length), grouped(better), grouped(worse), signed(meanOf(changes)),
    ...[0.05, 0.5, 0.95].map(share => signed(percentileOf(changes, share)))];
}

const kSpreadTitles = ['Captures', 'Better', 'Worse', 'Mean', '5 %', 'Median', '95 %'];

function table(caption, titles, rows) {
  return element('div', {class: 'scroll', tabindex: '0', role: 'region', 'aria-label': caption},
      element('table', {}, element('caption', {}, caption),
          element('thead', {}, element('tr', {}, ...titles.map(title => element('th', {scope: 'col'}, title)))),
          element('tbody', {}, ...rows)));
}

function cells(values) {
  return values.map(value => element('td', {class: 'number'}, value));
}

function showSettings(captures) {
  const figure = fleet.figures[chosen.figure];
  const rows = fleet.settings.map((setting, i) => element('tr', {'aria-current': i === chosen.setting},
      element('td', {}, String(i)),
      element('td', {}, element('button', {type: 'button', onclick: () => choose({setting: i})}, setting.label)),
      ...cells(i === fleet.base ? ['base', '', '', '', '', '', ''] : spreadOf(changesOf(chosen.figure, i, captures), figure.less)),
      ...cells([grouped(setting.failed), ...setting.percentiles.map(shown)])));
  document.getElementById('settings').replaceChildren(table('Change of ' + unitOf(figure),
      ['', 'Setting', ...kSpreadTitles, 'Failed',
    ...fleet.summaries.flatMap(name => fleet.percents.map(percent => name.replace('_', ' ') + ' p' + percent + ', ms'))], rows));
}

function chart(id, rows, options) {
  if (charts[id]) charts[id].destroy();
  charts[id] = new Dygraph(document.getElementById(id), rows, {
    legend: 'never', interactionModel: {}, highlightCircleSize: 0, axisLineColor: colour('line'),
    gridLineColor: colour('grid'), connectSeparatedPoints: true, ...options});
}

function showSpread(captures) {
  const settings = fleet.settings.map((setting, i) => i).filter(i => i !== fleet.base);
  const sorted = settings.map(i => Float64Array.from(changesOf(chosen.figure, i, captures), pair => pair[1]).sort());
  const rows = [];
  for (let step = 0; step <= kChartSteps; ++step) {
    rows.push([100 * step / kChartSteps, ...sorted.map(changes => changes.length === 0 ? null :
        changes[Math.round(step / kChartSteps * (changes.length - 1))])]);
  }
  const series = Object.fromEntries(settings.map(i => ['s' + i, i === chosen.setting ?
      {color: colour('run0'), strokeWidth: 3} : {color: colour('quiet'), strokeWidth: 0.8}]));
  chart('spread', rows, {labels: ['share', ...settings.map(i => 's' + i)], series,
    xlabel: 'captures, %', ylabel: unitOf(fleet.figures[chosen.figure])});
}

// Those that no other beats in one figure without losing in the other.
function frontOf(points) {
  const cost = (point, axis) => fleet.figures[chosen[axis]].less ? point[axis] : -point[axis];
  return points.filter(one => !points.some(other => cost(other, 'x') <= cost(one, 'x') && cost(other, 'y') <= cost(one, 'y') &&
      (cost(other, 'x') < cost(one, 'x') || cost(other, 'y') < cost(one, 'y'))));
}

function showFront(captures) {
  const points = fleet.settings.map((setting, i) =>
    ({i, x: meanValue(chosen.x, i, captures), y: meanValue(chosen.y, i, captures)}))
      .filter(point => !Number.isNaN(point.x + point.y)).sort((a, b) => a.x - b.x || a.y - b.y);
  const front = frontOf(points);
  const mark = (graph, name, context, x, y, colour_, radius, row) => {
    drawMarker(context, runStyle(points[row].i), x, y, points[row].i === chosen.setting ? 6 : 4);
    context.fillStyle = colour('ink');
    context.fillText(String(points[row].i), x + 7, y - 5);
  };
  chart('front', points.map(point => [point.x, point.y, front.includes(point) ? point.y : null]), {
    labels: ['x', 'settings', 'front'], drawPoints: true, drawPointCallback: mark, xRangePad: 30, yRangePad: 30,
    series: {settings: {strokeWidth: 0, color: colour('quiet')},
      front: {strokeWidth: 1.5, color: colour('accent'), drawPoints: false}},
    xlabel: unitOf(fleet.figures[chosen.x]), ylabel: unitOf(fleet.figures[chosen.y])});
  document.getElementById('front-list').replaceChildren(table('On the front',
      ['', 'Setting', unitOf(fleet.figures[chosen.x]), unitOf(fleet.figures[chosen.y])], front.map(point =>
        element('tr', {}, element('td', {}, String(point.i)), element('td', {}, fleet.settings[point.i].label),
            ...cells([shown(point.x), shown(point.y)])))));
}

function showGroups(captures) {
  const node = document.getElementById('groups');
  const column = fleet.columns[chosen.group];
  if (!column) return node.replaceChildren(element('p', {class: 'quiet'}, 'The list of captures tells nothing to group by.'));
  const rows = column.values.map((value, i) => [value, captures.filter(capture => column.of[capture] === i)])
      .filter(([, members]) => members.length > 0)
      .map(([value, members]) => element('tr', {}, element('td', {}, value || '\u2013'),
          ...cells(spreadOf(changesOf(chosen.figure, chosen.setting, members), fleet.figures[chosen.figure].less))));
  node.replaceChildren(table('Change of ' + unitOf(fleet.figures[chosen.figure]) + ' by ' + chosen.group,
      [chosen.group, ...kSpreadTitles], rows));
}

// Of --compare: what turns the options of the base into those of the setting.
function changesBetween(base, other) {
  const pairs = text => text.split(/ (?=--)/).map(option => [option, option.replace(/^--/, '').replace(/^set /, '').replace(' ', '=')]);
  const known = new Set(pairs(base).map(pair => pair[0]));
  return pairs(other).filter(pair => pair[0] && !known.has(pair[0]))
      .map(pair => pair[1] === 'no-library' ? 'none' : pair[1]).join(', ');
}

function quoted(text) {
  return /^[\w./=:-]+$/.test(text) ? text : "'" + text.replaceAll("'", "'\\''") + "'";
}

function pageCommand(capture, page) {
  const base = fleet.settings[fleet.base].options;
  const setting = fleet.settings[chosen.setting];
  const compare = setting.options === base ? '' :
      ' --compare ' + quoted(setting.label.replaceAll(': ', ' ') + ': ' + changesBetween(base, setting.options));
  return 'cindral-replay ' + quoted(fleet.names[capture]) + ' ' + base + compare + ' --report ' + page;
}

function showWorst(captures) {
  const figure = fleet.figures[chosen.figure];
  const sign = figure.less ? 1 : -1;
  const worst = changesOf(chosen.figure, chosen.setting, captures)
      .filter(pair => sign * pair[1] > 0).sort((a, b) => sign * (b[1] - a[1])).slice(0, kWorstRows);
  const names = Object.keys(fleet.columns);
  document.getElementById('worst').replaceChildren(table('Worst in ' + unitOf(figure) + (worst.length ? '' : ': none'),
      ['Capture', ...names, 'Base', 'Change', 'Command'], worst.map(([capture, change]) => {
        const page = fleet.hashes[capture] + '-' + chosen.setting + '.html';
        return element('tr', {}, element('td', {}, element('a', {href: page}, fleet.names[capture])),
            ...names.map(name => element('td', {}, fleet.columns[name].values[fleet.columns[name].of[capture]])),
            ...cells([shown(fleet.values[fleet.base][chosen.figure][capture] / kThousandths), signed(change)]),
            element('td', {}, element('code', {}, pageCommand(capture, page))));
      })));
}

function showFailures() {
  document.getElementById('failures').replaceChildren(fleet.failures.length === 0 ? element('p', {class: 'quiet'}, 'None.') :
      table('Failed runs', ['Runs', 'Reason', 'For instance'], fleet.failures.map(failure => element('tr', {},
          ...cells([grouped(failure.count)]), element('td', {}, failure.reason), element('td', {}, failure.example)))));
}

function show() {
  const captures = visibleCaptures();
  showSettings(captures);
  showSpread(captures);
  showFront(captures);
  showGroups(captures);
  showWorst(captures);
}

function choose(choice) {
  Object.assign(chosen, choice);
  show();
}

function select(label, options, value, onchange) {
  return element('label', {}, label, element('select', {onchange: event => onchange(event.target.value)},
      ...options.map(([name, text]) => element('option', {value: name, selected: String(name) === String(value)}, text))));
}

function makeChoices() {
  const figures = fleet.figures.map((figure, i) => [i, unitOf(figure)]);
  document.getElementById('choices').append(
      select('Figure', figures, chosen.figure, value => choose({figure: Number(value)})),
      ...Object.entries(fleet.columns).filter(([, column]) => column.values.length <= kMostChoices).map(([name, column]) =>
        select(name, [['', 'all'], ...column.values.map(value => [value, value])], '', value => {
          chosen.filters[name] = value;
          show();
        })),
      select('Group by', Object.keys(fleet.columns).map(name => [name, name]), chosen.group, group => choose({group})));
  document.getElementById('axes').append(
      select('Across', figures, chosen.x, value => choose({x: Number(value)})),
      select('Up', figures, chosen.y, value => choose({y: Number(value)})));
}

function start() {
  fleet = JSON.parse(document.getElementById('data').textContent);
  const index = name => Math.max(0, fleet.figures.findIndex(figure => figure.name === name));
  Object.assign(chosen, {figure: index(kFirstFigures[0]), x: index(kFirstFigures[0]), y: index(kFirstFigures[1]),
    setting: fleet.settings.length > 1 && fleet.base === 0 ? 1 : 0, group: Object.keys(fleet.columns)[0] || ''});
  document.querySelector('main').hidden = false;
  showFailures();
  if (fleet.figures.length === 0) throw new Error('no figure differs between the settings');
  makeChoices();
  show();
  window.matchMedia('(prefers-color-scheme: dark)').addEventListener('change', show);
  window.cindralFleet = {fleet, chosen, charts};  // for whoever scripts the page
}

try {
  start();
} catch (error) {
  const failure = document.getElementById('failure');
  failure.hidden = false;
  failure.textContent = 'There is nothing to draw: ' + error.message;
}
