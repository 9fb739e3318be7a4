// The elements that the page is made of. Names, values and all else that comes out of the package reach the page only as
// text nodes and attribute values made here, never as markup.

/** An element with attributes, event handlers ("on…") and children, of which texts become text nodes. */
function el(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (value === true) element.setAttribute(name, "");
    else if (value !== false && value !== null && value !== undefined) element.setAttribute(name, value);
  }
  element.append(...children.flat());
  return element;
}

const byId = (id) => document.getElementById(id);

/** A button of the toolbar that stays pressed; `isPressed` is asked again whenever the toolbar is shown anew. */
const pressables = [];
function toggleButton(text, isPressed, onPress, attributes = {}) {
  const button = el("button", { type: "button", ...attributes, onclick: onPress }, text);
  const show = () => button.setAttribute("aria-pressed", String(isPressed()));
  pressables.push(show);
  show();
  return button;
}

/** Whether a text has every word that was typed, in any order and case. */
function matcher(typed) {
  const words = typed.toLowerCase().split(/\s+/).filter(Boolean);
  return (text) => words.every((word) => text.includes(word));
}

/** Hands bytes to the reader as a file, as a download. */
function saveAs(name, blob) {
  const link = el("a", { href: URL.createObjectURL(blob), download: name.replace(/[^\p{L}\p{N}._-]+/gu, "_") });
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

// ---- light and dark ----

const kThemes = ["auto", "light", "dark"];
const prefersDark = matchMedia("(prefers-color-scheme: dark)");
let theme = "auto";
let isPrinting = false;

function showTheme() {
  const isDark = !isPrinting && (theme === "dark" || (theme === "auto" && prefersDark.matches));
  document.documentElement.dataset.theme = isDark ? "dark" : "light";
  byId("theme").textContent = "Colours: " + (theme === "auto" ? "as the system" : theme);
}

/** A colour of the page's style, as the canvas takes it. */
function styleColour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}
