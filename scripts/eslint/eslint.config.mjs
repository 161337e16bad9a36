// The JavaScript lint of scripts/lint: ESLint's recommended rules over the
// console's script, which the browser runs as a classic script, and over
// the browser tests, Node modules that also hand functions to the page.
// The packages come from build-eslint/, which scripts/install-deps fills
// from this directory's lockfile; scripts/lint runs this file from there.
import js from '@eslint/js';
import globals from 'globals';

export default [
  js.configs.recommended,
  {
    files: ['web/**/*.js'],
    languageOptions: {
      ecmaVersion: 2020,
      sourceType: 'script',
      globals: globals.browser,
    },
  },
  {
    files: ['tests/**/*.mjs'],
    languageOptions: {
      ecmaVersion: 2022,
      sourceType: 'module',
      globals: {...globals.node, ...globals.browser},
    },
  },
];
