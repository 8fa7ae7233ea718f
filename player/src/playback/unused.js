// Stands in for modules of libraries that the page does not use (vite.config.js).
export const queryRemoteFonts = async () => [];
