// Small helpers over the DOM. Text is always set as text, never as markup.

const SVG = 'http://www.w3.org/2000/svg';

function fill(element, properties, children) {
  for (const [name, value] of Object.entries(properties ?? {})) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else if (name === 'class') element.setAttribute('class', value);
    else if (name in element && typeof value !== 'string' && !(element instanceof SVGElement)) element[name] = value;
    else element.setAttribute(name, value === true ? '' : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

/** An element of HTML: make('p', {class: 'fact'}, 'text', child). Properties that begin with "on" are listeners. */
export function make(name, properties, ...children) {
  return fill(document.createElement(name), properties, children);
}

/** The same in SVG. */
export function draw(name, properties, ...children) {
  return fill(document.createElementNS(SVG, name), properties, children);
}

/** Sets the text where it is another one: a live region would be read again otherwise. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

export function setClass(element, name, isOn) {
  if (element.classList.contains(name) !== Boolean(isOn)) element.classList.toggle(name, Boolean(isOn));
}

export function setHidden(element, isHidden) {
  if (element.hidden !== Boolean(isHidden)) element.hidden = Boolean(isHidden);
}

/** True where keys are typed into something: they belong to it then, and not to the show. */
export function isTyping(target) {
  if (!(target instanceof Element)) return false;
  if (target.closest('textarea, select, [contenteditable]')) return true;
  const input = target.closest('input');
  return input !== null && !['range', 'button', 'checkbox', 'radio'].includes(input.type);
}

/**
 * A button for somebody who runs a show: it acts when it is touched, and a pointer does not leave the focus on it, so that
 * Space stays the key that goes on. `act` gets the event.
 */
export function pressButton(properties, ...children) {
  const { onpress, ...others } = properties;
  const button = make('button', { type: 'button', ...others }, ...children);
  let wasTouched = false;
  button.addEventListener('pointerdown', (event) => {
    if (event.button !== 0 || button.disabled) return;
    wasTouched = true;
    onpress(event);
  });
  button.addEventListener('mousedown', (event) => event.preventDefault());
  button.addEventListener('click', (event) => {
    if (!wasTouched) onpress(event);
    wasTouched = false;
  });
  // A touch that turns into scrolling has acted already, and no click follows.
  button.addEventListener('pointercancel', () => { wasTouched = false; });
  return button;
}

/** A button that acts when it is let go of, for what scrolls or is not urgent; it does not keep the focus either. */
export function clickButton(properties, ...children) {
  const button = make('button', { type: 'button', ...properties }, ...children);
  button.addEventListener('mousedown', (event) => event.preventDefault());
  return button;
}
