// Keyboard, links, and the page's own address; the last of the files: it shows the page.

document.addEventListener("keydown", event => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const typing = event.target.matches("input[type=search], select");
  if (event.key === "/" && !typing) {
    event.preventDefault();
    $("text").focus();
    $("text").select();
  } else if (event.key === "Escape" && (isNarrowed() || $("text").value)) {
    $("text").value = "";
    clear();
  } else if ((event.key === "ArrowDown" || event.key === "ArrowUp") &&
    event.target.matches(".list > details > summary, #linked > details > summary")) {
    const all = [...document.querySelectorAll("#linked > details > summary, .list > details > summary")].filter(
      item => item.closest("section") === event.target.closest("section"));
    const next = all[all.indexOf(event.target) + (event.key === "ArrowDown" ? 1 : -1)];
    if (next) {
      event.preventDefault();
      next.focus();
    }
  }
});

document.addEventListener("click", event => {
  const link = event.target.closest?.("a[href^='#']");
  if (!link || event.ctrlKey || event.shiftKey || event.metaKey || event.button) return;
  event.preventDefault();
  if (link.dataset.go) return goTo(link.dataset.go);
  if (link.getAttribute("href") !== location.hash) history.pushState(null, "", link.getAttribute("href"));
  readAddress();
  render();
  if (state.run) goToRun(state.run);
  else if (link.dataset.then === "list") {
    $("runs-title").focus({preventScroll: true});
    $("shown").scrollIntoView({block: "start"});
  } else goTo(link.dataset.then);
});

function follow() {
  readAddress();
  render();
  if (state.run) goToRun(state.run);
  else if (isNarrowed()) $("shown").scrollIntoView({block: "start"});
}
window.addEventListener("popstate", follow);
window.addEventListener("beforeprint", () => {
  for (const details of $("group-list").querySelectorAll("details")) details.open = true;
});
let wide = window.innerWidth;
window.addEventListener("resize", () => {
  if (wide !== window.innerWidth) {
    wide = window.innerWidth;
    renderTimeline(lastRuns);
  }
});

renderHead();
renderGroups();
renderTables();
prepareFilters();
follow();
