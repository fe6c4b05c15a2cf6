// Numbers and elements. Names and log lines come from captures: they only ever become text nodes.

function element(tag, attributes, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes || {})) {
    if (name === 'onclick' || name === 'onchange' || name === 'oninput') {
      node.addEventListener(name.slice(2), value);
    } else if (value !== null && value !== false) {
      node.setAttribute(name, value === true ? '' : value);
    }
  }
  node.append(...children);
  return node;
}

function grouped(number) {
  return String(number).replace(/\B(?=(\d{3})+$)/g, '\u202f');
}

function milliseconds(ns) {
  return (ns / kNsPerMs).toFixed(2) + ' ms';
}

// Exact, as in the replay's timeline.
function exactSeconds(ns) {
  const magnitude = Math.abs(ns);
  const whole = Math.floor(magnitude / kNsPerSecond);
  const rest = String(magnitude - whole * kNsPerSecond).padStart(9, '0');
  return (ns < 0 ? '\u2212' : '') + whole + '.' + rest;
}

function shortSeconds(seconds, span) {
  const decimals = span > 100 ? 1 : span > 10 ? 2 : span > 1 ? 3 : 4;
  return seconds.toFixed(decimals);
}

function percentileOf(values, share) {
  if (values.length === 0) return NaN;
  const sorted = Float64Array.from(values).sort();
  return sorted[Math.max(0, Math.ceil(sorted.length * share) - 1)];
}
