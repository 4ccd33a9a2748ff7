// Finds the native part, which only Windows has. It is loaded by the first session: this package can be imported
// everywhere.
'use strict';

let loaded;

function native() {
  return (loaded ??= load());
}

function load() {
  const { KivError } = require('./errors');
  const system = `${process.platform}-${process.arch}`;
  if (system !== 'win32-x64') {
    throw new KivError('KIV_UNSUPPORTED', `kiv-session is unsupported on ${system}: it needs win32-x64`);
  }
  try {
    return require('kiv-session-win32-x64');
  } catch (error) {
    const missing = error.code === 'MODULE_NOT_FOUND' ? 'the package kiv-session-win32-x64 is not installed' : error.message;
    throw new KivError('KIV_UNSUPPORTED', `kiv-session cannot be used: ${missing}`, { cause: error });
  }
}

module.exports = { native };
