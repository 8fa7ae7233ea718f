import { defineConfig } from 'vite';

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
});
