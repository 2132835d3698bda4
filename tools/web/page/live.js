/* What the server tells by itself. The browser connects anew when the stream breaks; each stream begins with "hello". */

const TOO_LONG = 3000; // milliseconds without a stream before the page says so
const AGAIN = 1000; // milliseconds after which a stream that was refused is asked for again

/* `handlers`: a function for each event, `lost(bool)`, and `refused()`, after which the stream is tried again. */
export function listen(handlers) {
  let source = null;
  let timer = 0;
  let again = 0;

  const lost = () => {
    timer ||= setTimeout(() => handlers.lost(true), TOO_LONG);
  };
  const found = () => {
    clearTimeout(timer);
    timer = 0;
    handlers.lost(false);
  };
  const open = () => {
    source = new EventSource("api/events");
    for (const name of ["hello", "state", "handset", "traffic"]) {
      source.addEventListener(name, (event) => {
        found();
        handlers[name](JSON.parse(event.data));
      });
    }
    source.onerror = async () => {
      lost();
      if (source.readyState === EventSource.CLOSED) { // refused, so the browser has given up
        await handlers.refused(); // perhaps the token is wanted
        clearTimeout(again);
        again = setTimeout(open, AGAIN);
      }
    };
  };
  open();

  /* A browser may keep a page that was left, and has only six connections to a server. */
  addEventListener("pagehide", () => {
    clearTimeout(again);
    source.close();
  });
  addEventListener("pageshow", (event) => {
    if (event.persisted) {
      open();
    }
  });
}
