"use strict";
// Shows the values at the moment selected in the chart, on the slider or in the log, and marks the latest
// log line at that moment.
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  // The same picture in several sizes, of which the style sheet shows one.
  const pictures = [...document.querySelectorAll(".picture[role=img]")];
  const slider = document.getElementById("moment");
  const values = [...document.querySelectorAll("#reading dd")];
  const list = document.getElementById("lines");
  const lines = list ? [...list.children] : [];
  const times = lines.map((line) => Number(line.dataset.time));

  const cursors = pictures.map((picture, place) => {
    const cursor = add(picture, "line", "cursor");
    cursor.setAttribute("y1", 0);
    cursor.setAttribute("y2", picture.viewBox.baseVal.height);
    const point = add(picture, "circle", "point");
    point.setAttribute("r", 4);
    return { cursor, point, ...data.pictures[place] };
  });
  let chosen = null;

  function add(picture, name, style) {
    const element = document.createElementNS("http://www.w3.org/2000/svg", name);
    element.setAttribute("class", style);
    picture.append(element);
    return element;
  }

  const shareOf = (time) => (time - data.from) / (data.until - data.from);

  // The index of the last item at or before the time; 0 when there is none.
  function lastUntil(time, length, timeOf) {
    let low = 0;
    let high = length;
    while (high - low > 1) {
      const middle = (low + high) >> 1;
      if (timeOf(middle) <= time) low = middle;
      else high = middle;
    }
    return low;
  }
  const momentAt = (time) => lastUntil(time, data.moments.length, (index) => data.moments[index].time);

  function nearestMoment(time) {
    const before = momentAt(time);
    const after = Math.min(before + 1, data.moments.length - 1);
    const afterIsNearer = data.moments[after].time - time < time - data.moments[before].time;
    // Of several moments at one time, the last one applies from then on.
    return afterIsNearer ? momentAt(data.moments[after].time) : before;
  }

  function show(index, line) {
    const moment = data.moments[index];
    for (const { cursor, point, left, right } of cursors) {
      const x = left + shareOf(moment.time) * (right - left);
      cursor.setAttribute("x1", x);
      cursor.setAttribute("x2", x);
      point.setAttribute("cx", x);
      point.setAttribute("cy", moment.y);
    }
    moment.values.forEach((value, place) => { values[place].textContent = value || "–"; });
    slider.value = index;
    slider.setAttribute("aria-valuetext", data.names.map((name, place) => `${name} ${moment.values[place] || "unknown"}`).join(", "));
    mark(line);
  }

  function mark(line) {
    if (chosen) chosen.classList.remove("chosen");
    chosen = line || null;
    if (chosen) chosen.classList.add("chosen");
  }

  // Selected in the chart or on the slider: the log scrolls to its line.
  function showMoment(index) {
    const line = lines.length > 0 ? lines[lastUntil(data.moments[index].time, lines.length, (place) => times[place])] : null;
    show(index, line);
    if (!line) return;
    const above = line.offsetTop < list.scrollTop;
    const below = line.offsetTop + line.offsetHeight > list.scrollTop + list.clientHeight;
    if (above || below) list.scrollTop = line.offsetTop - list.clientHeight / 2;
  }

  pictures.forEach((picture, index) => {
    const { left, right } = data.pictures[index];
    picture.addEventListener("pointermove", (event) => {
      const place = picture.getBoundingClientRect();
      const x = ((event.clientX - place.left) / place.width) * picture.viewBox.baseVal.width;
      showMoment(nearestMoment(data.from + ((x - left) / (right - left)) * (data.until - data.from)));
    });
    // After a click the arrow keys move on from here.
    picture.addEventListener("click", () => slider.focus());
  });
  slider.addEventListener("input", () => showMoment(Number(slider.value)));
  list?.addEventListener("pointerover", (event) => {
    const line = event.target.closest("li");
    if (line) show(momentAt(Number(line.dataset.time)), line);
  });

  showMoment(data.moments.length - 1);
  if (list) list.scrollTop = 0;
})();
