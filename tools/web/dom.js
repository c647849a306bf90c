// The one DOM helper the live page and the reports share: el('div', {class: 'c', text: 't'}, child, ...) makes an
// element with its attributes ('class' and 'text' set className and textContent) and children.
'use strict';

function el(tag, attrs = {}, ...children) {
  const node = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs)) {
    if (k === 'class') node.className = v; else if (k === 'text') node.textContent = v;
    else node.setAttribute(k, v);
  }
  for (const child of children) node.append(child);
  return node;
}
