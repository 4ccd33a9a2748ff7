// What goes wrong, as errors with a code.
'use strict';

const { CODES, SYSTEM, nameIn } = require('./declarations');
const { native } = require('./native');

class KivError extends Error {
  constructor(code, message, options) {
    super(message, options);
    this.name = 'KivError';
    this.code = code;
  }

  /** The error that a status of the library stands for. */
  static of(status, what) {
    const error = new KivError(nameIn(CODES, status) ?? 'KIV_SYSTEM', `${what}: ${native().statusText(status)}`);
    if (status >= SYSTEM) error.systemError = status - SYSTEM;
    return error;
  }
}

module.exports = { KivError };
