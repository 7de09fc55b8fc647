// The search of the site: finds words of all pages and functions, in the box that the builder's own search has, which
// knows nothing but names. The words are in search/words.js.
const zelSearch = (() => {
  const kMostResults = 40;
  let entries = null;
  let panel = null;

  function words(text) {
    return text.toLowerCase().split(/\s+/).filter(Boolean);
  }

  function escaped(word) {
    return word.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
  }

  // How well a text has a word: whole, as a beginning, anywhere, or not at all.
  function fit(text, word) {
    if (!text.includes(word)) return 0;
    if (new RegExp(`(^|[^\\w])${escaped(word)}($|[^\\w])`).test(text)) return 3;
    return new RegExp(`(^|[^\\w])${escaped(word)}`).test(text) ? 2 : 1;
  }

  // 0 when one of the words is missing; headings count more than the text, pages more than functions.
  function score(entry, wanted) {
    let sum = entry.isPage ? 1 : 0;
    for (const word of wanted) {
      const inHeading = fit(entry.heading, word);
      const inText = fit(entry.text, word);
      const inTitle = fit(entry.title, word);
      if (inHeading + inText + inTitle === 0) return 0;
      sum += 4 * inHeading + 2 * inText + 2 * inTitle;
    }
    return sum;
  }

  function find(query) {
    const wanted = words(query);
    if (wanted.length === 0) return [];
    return entries
      .map((entry, order) => ({ entry, order, score: score(entry, wanted) }))
      .filter((found) => found.score > 0)
      .sort((a, b) => b.score - a.score || a.order - b.order)
      .slice(0, kMostResults)
      .map((found) => found.entry);
  }

  // Adds a text to an element, the wanted words marked.
  function addMarked(element, text, wanted) {
    const parts = text.split(new RegExp(`(${wanted.map(escaped).join("|")})`, "i"));
    parts.forEach((part, i) => {
      const child = i % 2 ? document.createElement("mark") : document.createTextNode("");
      child.textContent = part;
      element.append(child);
    });
  }

  function excerpt(entry, wanted) {
    const positions = wanted.map((word) => entry.text.indexOf(word)).filter((at) => at >= 0);
    const at = Math.max(0, Math.min(...positions, entry.text.length) - 40);
    const from = positions.length === 0 || at === 0 ? 0 : entry.shown.indexOf(" ", at) + 1;
    return (from > 0 ? "... " : "") + entry.shown.slice(from, from + 150);
  }

  function item(entry, query) {
    const wanted = words(query);
    const link = document.createElement("a");
    const [page, fragment] = entry.address.split("#");
    link.href = `${page}?find=${encodeURIComponent(query)}${fragment ? "#" + fragment : ""}`;
    const heading = document.createElement("b");
    addMarked(heading, entry.shownHeading || entry.shownTitle, wanted);
    const title = document.createElement("span");
    title.textContent = entry.shownHeading ? entry.shownTitle : "";
    const text = document.createElement("p");
    addMarked(text, excerpt(entry, wanted), wanted);
    link.append(heading, title, text);
    return link;
  }

  function field() {
    return document.getElementById("MSearchField");
  }

  function close() {
    if (panel) panel.style.display = "none";
  }

  function show() {
    const query = field().value;
    if (words(query).length === 0) return close();
    if (!panel) {
      panel = document.createElement("div");
      panel.id = "zel-found";
      document.body.append(panel);
    }
    const found = entries ? find(query) : [];
    panel.replaceChildren(...found.map((entry) => item(entry, query)));
    if (found.length === 0) panel.textContent = entries ? "Nothing has these words." : "Loading ...";
    panel.style.display = "block";
    place();
  }

  function place() {
    const box = field().getBoundingClientRect();
    panel.style.top = `${box.bottom + 8}px`;
    panel.style.left = `${Math.max(8, Math.min(box.left - 24, window.innerWidth - panel.offsetWidth - 8))}px`;
  }

  function load(list) {
    entries = list.map(([address, title, heading, text]) => ({
      address, shown: text, shownHeading: heading, shownTitle: title,
      text: text.toLowerCase(), heading: heading.toLowerCase(), title: title.toLowerCase(),
      isPage: !/^(group__|class|struct|namespace)/.test(address),
    }));
    if (document.activeElement === field()) show();
  }

  function fetchWords() {
    if (document.getElementById("zel-words")) return;
    const script = document.createElement("script");
    script.id = "zel-words";
    script.src = "search/words.js";
    document.head.append(script);
  }

  // Arrows walk through what was found, Enter in the box opens the first.
  function key(event) {
    const links = panel && panel.style.display !== "none" ? [...panel.querySelectorAll("a")] : [];
    const at = links.indexOf(document.activeElement);
    const inBox = event.target === field();
    if (event.key === "/" && !/^(INPUT|TEXTAREA)$/.test(event.target.tagName)) field().focus();
    else if (event.key === "Escape") close();
    else if (event.key === "Enter" && inBox && links.length) links[0].click();
    else if (event.key === "ArrowDown" && (inBox || at >= 0) && links.length) links[Math.min(at + 1, links.length - 1)].focus();
    else if (event.key === "ArrowUp" && at >= 0) (at > 0 ? links[at - 1] : field()).focus();
    else return;
    event.preventDefault();
  }

  // The place of the page that was found: the first of the words behind the heading.
  function markFound() {
    const wanted = words(new URLSearchParams(window.location.search).get("find") || "");
    const contents = document.querySelector("div.contents");
    if (wanted.length === 0 || !contents) return;
    const heading = document.getElementById(decodeURIComponent(window.location.hash.slice(1)));
    const walker = document.createTreeWalker(contents, NodeFilter.SHOW_TEXT);
    for (let node = walker.nextNode(); node; node = walker.nextNode()) {
      const behind = !heading || heading.compareDocumentPosition(node) & Node.DOCUMENT_POSITION_FOLLOWING;
      const at = behind && !node.parentElement.closest("script, .toc, .ttc") ? node.data.toLowerCase().indexOf(wanted[0]) : -1;
      if (at < 0) continue;
      const range = document.createRange();
      range.setStart(node, at);
      range.setEnd(node, at + wanted[0].length);
      const mark = document.createElement("mark");
      range.surroundContents(mark);
      window.setTimeout(() => mark.scrollIntoView({ block: "center" }), 100);
      return;
    }
  }

  function start() {
    const nothing = () => {};
    window.searchBox = {
      OnSearchFieldFocus: nothing, OnSearchFieldChange: nothing, OnSearchSelectShow: nothing, OnSearchSelectHide: nothing,
      OnSearchSelectKey: nothing, CloseResultsWindow: close,
    };
    document.addEventListener("focusin", (event) => {
      field().closest("#MSearchBox").className = event.target === field() ? "MSearchBoxActive" : "MSearchBoxInactive";
      if (event.target === field()) { fetchWords(); show(); }
    });
    document.addEventListener("input", (event) => { if (event.target === field()) show(); });
    document.addEventListener("keydown", key);
    document.addEventListener("click", (event) => {
      if (panel && event.target !== field() && !panel.contains(event.target)) close();
    });
    window.addEventListener("resize", () => { if (panel && panel.style.display === "block") place(); });
    markFound();
  }

  return { load, start };
})();
window.addEventListener("load", zelSearch.start);
