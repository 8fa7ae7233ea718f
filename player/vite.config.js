import { defineConfig } from 'vite';

export default defineConfig({
  base: './',
  // Everything comes from the page's own folder, and nothing is inlined: the server's policy forbids it.
  build: {
    assetsInlineLimit: 0,
    chunkSizeWarningLimit: 1000,
    emptyOutDir: true,
    modulePreload: { polyfill: false },
    target: 'es2022',
  },
});
