/* What the server tells by itself. The browser connects anew when the stream breaks; each stream begins with "hello". */

const TOO_LONG = 3000; // milliseconds without a stream before the page says so

/* `handlers`: a function for each event, and `lost(bool)`. */
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
    source.onerror = () => {
      lost();
      if (source.readyState === EventSource.CLOSED) { // refused, so the browser has given up
        clearTimeout(again);
        again = setTimeout(open, TOO_LONG);
      }
    };
  };
  open();
}
