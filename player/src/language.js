// The page in the viewer's language. Names of files are never translated.
import { GERMAN } from './strings.js';

const DICTIONARIES = { en: {}, de: GERMAN };

// The first of the viewer's languages that the page speaks.
export function languageFor(wanted) {
  const codes = wanted.map((name) => name.slice(0, 2).toLowerCase());
  return codes.find((code) => code in DICTIONARIES) ?? 'en';
}

export const language = languageFor(globalThis.document ? globalThis.navigator.languages : []);
const dictionary = DICTIONARIES[language];

// Has the page this text in the viewer's language? The code itself has the English ones.
export const hasText = (text) => language === 'en' || text in dictionary;

// The text in the viewer's language, with values in place of their names: t('{count} films', { count: 3 }).
export function t(text, values = {}) {
  return (dictionary[text] ?? text).replace(/\{(\w+)\}/g, (whole, name) => values[name] ?? whole);
}

// The text for one or for any other number.
export const counted = (count, one, many) => t(count === 1 ? one : many, { count });
