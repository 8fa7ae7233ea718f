// The page's shell for times without the server: the page starts and says that the server does not answer. The server's
// own files count as long as it answers. Calls of the web API are never stored.
const STORE = 'mirevo-shell-1';

// Where the page lies, also below a path of a reverse proxy.
const HOME = new URL('./', self.location.href).href;
const isOwn = ({ method, url }) => method === 'GET' && url.startsWith(HOME) && !/^(webapi|files)\//.test(url.slice(HOME.length));

// Pages are never the same for long; the names of their scripts change with the content.
async function answer(request) {
  const store = await caches.open(STORE);
  try {
    const response = await fetch(request);
    if (response.ok && response.status === 200) {
      await store.put(request, response.clone());
    }
    return response;
  } catch (error) {
    const stored = await store.match(request, { ignoreSearch: true });
    if (stored) {
      return stored;
    }
    throw error;
  }
}

self.addEventListener('install', () => self.skipWaiting());
self.addEventListener('activate', (event) => event.waitUntil(self.clients.claim()));
self.addEventListener('fetch', (event) => {
  if (isOwn(event.request)) {
    event.respondWith(answer(event.request));
  }
});
