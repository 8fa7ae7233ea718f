// What ESLint asks of the page and of the tests; the layout of the code is left to its authors.
import js from '@eslint/js';
import globals from 'globals';

export default [
  {
    ...js.configs.recommended,
    files: ['player/**/*.js', 'tests/**/*.mjs', 'tools/**/*.mjs'],
    linterOptions: { reportUnusedDisableDirectives: 'error' },
    rules: {
      ...js.configs.recommended.rules,
      'array-callback-return': 'error',
      curly: ['error', 'multi-line'],
      'default-case-last': 'error',
      eqeqeq: 'error',
      'no-constructor-return': 'error',
      'no-eval': 'error',
      'no-implied-eval': 'error',
      'no-new-func': 'error',
      'no-return-assign': 'error',
      'no-script-url': 'error',
      'no-self-compare': 'error',
      'no-shadow': 'error',
      'no-template-curly-in-string': 'error',
      'no-unmodified-loop-condition': 'error',
      'no-unused-expressions': ['error', { allowShortCircuit: true }],
      'no-unused-vars': ['error', { ignoreRestSiblings: true }],
      'no-use-before-define': ['error', { functions: false, classes: false, variables: false }],
      'no-useless-concat': 'error',
      'no-useless-rename': 'error',
      'no-useless-return': 'error',
      'no-var': 'error',
      'object-shorthand': 'error',
      'prefer-arrow-callback': 'error',
      'prefer-const': 'error',
      'prefer-rest-params': 'error',
      'prefer-spread': 'error',
      radix: 'error',
    },
  },
  { files: ['player/src/**/*.js'], languageOptions: { globals: globals.browser } },
  { files: ['player/public/*.js'], languageOptions: { globals: globals.serviceworker } },
  { files: ['player/*.js', 'tests/player/**/*.mjs', 'tools/**/*.mjs'], languageOptions: { globals: globals.nodeBuiltin } },
  // Functions that are handed to the browser stand among the test's own.
  { files: ['tests/boxes/**/*.mjs', 'tests/conformance/**/*.mjs', 'tests/dlna/**/*.mjs', 'tests/films/**/*.mjs', 'tests/firefox/**/*.mjs', 'tests/hostile/**/*.mjs', 'tests/service/**/*.mjs', 'tests/va/**/*.mjs'], languageOptions: { globals: { ...globals.nodeBuiltin, ...globals.browser } } },
  { files: ['tests/faults/**/*.mjs', 'tests/load/**/*.mjs'], languageOptions: { globals: globals.nodeBuiltin } },
];
