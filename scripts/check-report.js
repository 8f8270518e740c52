// scripts/check-report.sh runs this script inside a report, after the report's own script. It uses the page as a person
// would and writes one line for each error into the attribute "data-faults" of the document.
"use strict";
(() => {
  const faults = [...window.errorsSeen];
  const expect = (holds, what) => { if (!holds) faults.push(what); };
  const data = JSON.parse(document.getElementById("data").textContent);
  const [{ left, right }] = data.pictures;
  const picture = document.querySelector(".picture");
  const slider = document.getElementById("moment");
  const lines = [...document.querySelectorAll("#lines li")];
  const values = () => [...document.querySelectorAll("#reading dd")].map((value) => value.textContent);
  const chosen = () => document.querySelector("#lines .chosen");
  const cursor = () => Number(document.querySelector(".cursor").getAttribute("x1"));
  const same = (one, other) => JSON.stringify(one) === JSON.stringify(other);
  const shownOf = (moment) => moment.values.map((value) => value || "–");

  // Of several moments at the same time the last one applies.
  const nearest = (time) => data.moments.reduce((best, moment) =>
    Math.abs(moment.time - time) <= Math.abs(best.time - time) ? moment : best);
  const xOf = (time) => left + ((time - data.from) / (data.until - data.from)) * (right - left);

  function pointAt(share) {
    const place = picture.getBoundingClientRect();
    const x = left + share * (right - left);
    const clientX = place.left + (x / picture.viewBox.baseVal.width) * place.width;
    picture.dispatchEvent(new PointerEvent("pointermove", { clientX, clientY: place.top + 100, bubbles: true }));
    return data.from + share * (data.until - data.from);
  }

  expect(data.moments.length > 10, "there are fewer than 11 moments");
  expect(same(values(), shownOf(data.moments.at(-1))), "the page does not show the last moment at first");
  for (const share of [0, 0.1013, 0.3307, 0.5171, 0.9039, 1]) {
    const moment = nearest(pointAt(share));
    expect(same(values(), shownOf(moment)), `pointing at ${share} shows ${values()} instead of ${moment.values}`);
    expect(Math.abs(cursor() - xOf(moment.time)) < 0.1, `pointing at ${share} moves the cursor to ${cursor()}`);
    const last = lines.filter((line) => Number(line.dataset.time) <= moment.time).at(-1);
    expect(chosen() === (last || lines[0]), `pointing at ${share} marks the line "${chosen()?.textContent}"`);
    const list = document.getElementById("lines").getBoundingClientRect();
    const line = chosen().getBoundingClientRect();
    expect(line.bottom > list.top && line.top < list.bottom, `pointing at ${share} does not scroll to the line`);
  }
  picture.dispatchEvent(new MouseEvent("click", { bubbles: true }));
  expect(document.activeElement === slider, "a click on the chart does not focus the slider");
  slider.value = 3;
  slider.dispatchEvent(new Event("input", { bubbles: true }));
  expect(same(values(), shownOf(data.moments[3])), "the slider does not show its moment");
  expect(slider.getAttribute("aria-valuetext").includes(data.moments[3].values[1]),
    "the slider has no text for its value");

  const line = lines[Math.floor(lines.length / 2)];
  line.dispatchEvent(new PointerEvent("pointerover", { bubbles: true }));
  expect(chosen() === line, "pointing at a line does not mark it");
  const before = data.moments.filter((moment) => moment.time <= Number(line.dataset.time)).at(-1) || data.moments[0];
  expect(same(values(), shownOf(before)), "pointing at a line does not show its moment");

  // --- Contrast: small text needs at least 4.5 to 1.
  const shadesOf = (colour) => colour.match(/[\d.]+/g).slice(0, 3).map(Number);
  const lightness = (colour) => {
    const [red, green, blue] = shadesOf(colour).map((shade) =>
      shade / 255 <= 0.04045 ? shade / 255 / 12.92 : ((shade / 255 + 0.055) / 1.055) ** 2.4);
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
  };
  const contrast = (one, other) => {
    const [low, high] = [lightness(one), lightness(other)].sort((first, second) => first - second);
    return (high + 0.05) / (low + 0.05);
  };
  const paper = getComputedStyle(document.body).backgroundColor;
  const dark = matchMedia("(prefers-color-scheme: dark)").matches;
  expect(dark === (lightness(paper) < 0.2), `the page's background is ${paper}`);
  expect(getComputedStyle(picture.querySelector(".paper")).fill === paper,
    "the chart and the page have different backgrounds");
  const texts = [...document.querySelectorAll("h1, .facts, dt, dd, #lines li:not(.chosen), .picture text:not(.word)")];
  for (const text of texts) {
    const style = getComputedStyle(text);
    const colour = text.namespaceURI.endsWith("svg") ? style.fill : style.color;
    expect(contrast(colour, paper) >= 4.5, `"${text.textContent.slice(0, 30)}" is hard to read: ${colour} on ${paper}`);
  }
  for (const word of picture.querySelectorAll(".word")) {
    const name = [...word.classList].find((style) => style.startsWith("on-")).slice(3);
    const area = picture.querySelector(`.look.${name}`);
    const background = area && getComputedStyle(area).fill;
    const colour = getComputedStyle(word).fill;
    // Text on a pattern has an outline in the background colour of the page.
    const behind = background.startsWith("rgb") ? background : paper;
    expect(contrast(colour, behind) >= 4.5, `"${word.textContent}" is hard to read: ${colour} on ${behind}`);
  }
  expect(document.documentElement.scrollWidth <= window.innerWidth, "the page is wider than the window");

  document.documentElement.dataset.scheme = dark ? "dark" : "light";
  document.documentElement.dataset.faults = faults.join("\n") || "none";
})();
