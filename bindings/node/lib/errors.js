// What goes wrong, as errors with a code.
'use strict';

const { native } = require('./native');

const SYSTEM = 0x80070000;
const CODES = {
  1: 'KIV_TIMED_OUT',
  2: 'KIV_CANCELLED',
  3: 'KIV_BAD_ARGUMENT',
  4: 'KIV_BAD_URL',
  5: 'KIV_TOO_LATE',
  6: 'KIV_REENTRANT',
  7: 'KIV_UNSUPPORTED',
  8: 'KIV_OUT_OF_MEMORY',
  9: 'KIV_CLOSED',
  10: 'KIV_NOT_YET',
  13: 'KIV_REJECTED',
  0x80070718: 'KIV_TOO_MANY',
};

class KivError extends Error {
  constructor(code, message, options) {
    super(message, options);
    this.name = 'KivError';
    this.code = code;
  }

  /** The error that a status of the library stands for. */
  static of(status, what) {
    const error = new KivError(CODES[status] ?? 'KIV_SYSTEM', `${what}: ${native().statusText(status)}`);
    if (status >= SYSTEM) error.systemError = status - SYSTEM;
    return error;
  }
}

module.exports = { KivError };
