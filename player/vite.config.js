import { fileURLToPath } from 'node:url';

import { defineConfig } from 'vite';

const unused = fileURLToPath(new URL('./src/playback/unused.js', import.meta.url));

export default defineConfig({
  base: './',
  // The server's policy allows only files of the page's own folder, so nothing is inlined.
  build: {
    assetsInlineLimit: 0,
    chunkSizeWarningLimit: 1000,
    emptyOutDir: true,
    modulePreload: { polyfill: false },
    target: 'es2022',
  },
  // Parts of jassub: what browsers without requestVideoFrameCallback need, and fonts from other servers.
  resolve: { alias: { 'lfa-ponyfill': unused, 'rvfc-polyfill': unused } },
  worker: { format: 'es' },
});
