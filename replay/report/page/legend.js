// Which runs and panels are shown, and whose frames and log.

function makeLegend(view, panels, node) {
  if (view.runs.length > 1) {
    node.append(element('fieldset', {}, ...view.runs.map((run, i) =>
      element('label', {}, element('input', {type: 'checkbox', checked: true,
        onchange: event => view.show(i, event.target.checked)}), swatch(i), run.label))),
    element('label', {}, 'Frames and log of', element('select', {id: 'focus',
      onchange: event => view.setFocus(Number(event.target.value))},
        ...view.runs.map((run, i) => element('option', {value: i}, run.label)))));
  }
  node.append(element('details', {}, element('summary', {}, 'Panels'), element('fieldset', {}, ...panels.map(panel =>
    element('label', {}, element('input', {type: 'checkbox', checked: !panel.definition.isOptional, 'data-panel': panel.definition.id,
      onchange: event => {
        panel.node.hidden = !event.target.checked;
        if (event.target.checked) panel.reload();
      }}), panel.definition.title)))));
}
