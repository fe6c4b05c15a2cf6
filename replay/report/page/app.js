// Puts the page together.

function makePanels(view, node) {
  return kPanels.map(definition => {
    const panel = definition.lanes ? new LanePanel(view, definition) : new Panel(view, definition);
    node.append(panel.node);
    panel.create();
    panel.node.hidden = Boolean(definition.isOptional);
    listenToPointer(panel, view);
    listenToKeys(panel.plot, view);
    return panel;
  });
}

// At most once a picture.
function coalesced(work) {
  let isPending = false;
  return () => {
    if (isPending) return;
    isPending = true;
    requestAnimationFrame(() => {
      isPending = false;
      work();
    });
  };
}

// Some time after the last call.
function settled(work, delayMs = 120) {
  let timer = 0;
  return () => {
    clearTimeout(timer);
    timer = setTimeout(work, delayMs);
  };
}

function listenToColours(redraw) {
  const now = () => {
    redrawSwatches();
    redraw();
  };
  window.matchMedia('(prefers-color-scheme: dark)').addEventListener('change', now);
  window.addEventListener('beforeprint', () => {
    document.documentElement.dataset.print = '';
    now();
  });
  window.addEventListener('afterprint', () => {
    delete document.documentElement.dataset.print;
    now();
  });
}

function start() {
  const at = id => document.getElementById(id);
  const runs = unpackRuns(at('data').textContent);
  const view = createView(runs);
  document.querySelector('main').hidden = false;
  const panels = makePanels(view, at('charts'));
  const overview = new Overview(view, at('overview'));
  listenToOverview(overview, view);
  listenToKeys(overview.plot, view);
  makeLegend(view, panels, at('legend'));
  theLog = new DecisionLog(view, at('log'));

  const visiblePanels = () => panels.filter(panel => !panel.node.hidden);
  const showWindow = () => { at('window').textContent = windowText(view); };
  const showTables = () => {
    if (!at('tables').open) return;
    showFigures(view, at('figures'));
    showFrames(view, at('frames'));
  };
  const redraw = () => {
    visiblePanels().forEach(panel => panel.update());
    overview.update();
    showWindow();
  };
  view.on('window', coalesced(redraw));
  view.on('window', settled(() => {
    theLog.restart();
    showTables();
  }));
  view.on('hover', coalesced(() => visiblePanels().forEach(panel => panel.placeCross())));
  view.on('choice', () => {
    visiblePanels().forEach(panel => panel.placeMarks());
    showFrame(view, at('frame'));
    theLog.showChoice();
  });
  view.on('runs', () => {
    visiblePanels().forEach(panel => panel.reload());
    overview.reload();
    theLog.restart();
    showTables();
  });
  at('tables').addEventListener('toggle', showTables);
  at('toolbar').addEventListener('click', event => {
    const button = event.target.closest('button');
    if (button) kActions[button.dataset.do](view);
  });
  window.addEventListener('resize', settled(redraw));
  listenToColours(redraw);
  showWindow();
  showFrame(view, at('frame'));
  window.cindralReport = {view, panels, overview};  // for whoever scripts the page
}

try {
  start();
} catch (error) {
  const failure = document.getElementById('failure');
  failure.hidden = false;
  failure.textContent = 'The charts cannot be drawn in this browser: ' + error.message;
  throw error;
}
