// Finds the native part, which only Windows has. It is loaded by the first session: this package can be imported
// everywhere.
'use strict';

const { existsSync } = require('node:fs');

const PACKAGE = 'kiv-win32-x64';
let loaded;

function native() {
  return (loaded ??= load());
}

function load() {
  const { KivError } = require('./errors');
  const system = `${process.platform}-${process.arch}`;
  if (system !== 'win32-x64') {
    throw new KivError('KIV_UNSUPPORTED', `kiv is unsupported on ${system}: it needs win32-x64`);
  }
  try {
    return require(nativeFile());
  } catch (error) {
    throw new KivError('KIV_UNSUPPORTED', `kiv cannot be used: ${error.message}`, { cause: error });
  }
}

/** The addon. Windows loads no DLL out of Electron's archive: what asarUnpack names is in a folder beside that. */
function nativeFile() {
  let file;
  try {
    file = require.resolve(PACKAGE);
  } catch (error) {
    throw new Error(`the package ${PACKAGE} is not installed`, { cause: error });
  }
  const unpacked = file.replace(/\.asar(?=[\\/])/, '.asar.unpacked');
  if (!existsSync(unpacked)) throw new Error(`${PACKAGE} is inside an archive: name its files in asarUnpack`);
  return unpacked;
}

module.exports = { native };
