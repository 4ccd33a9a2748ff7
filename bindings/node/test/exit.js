// One way for a program with a session to end, as the argument says.
'use strict';

const { writeSync } = require('node:fs');
const { Session } = require('kiv');

const { ports } = JSON.parse(process.env.KIV_TEST);
const kiv = new Session({ userAgent: 'exit/1', preferred: `http://127.0.0.1:${ports.silent}`, logLevel: 'debug' });
const idle = new Session({ userAgent: 'exit/1' });
const TARGET = `http://localhost:${ports.web}/ok`;
const say = (text) => writeSync(1, `${text}\n`);

const ways = {
  // Without promises nothing keeps the loop alive.
  natural: () => idle.lookup(TARGET),
  // A promise does.
  awaited: () => idle.resolve(TARGET).then(({ kind }) => say(kind)),
  exit: () => {
    kiv.resolve(TARGET);
    setTimeout(() => process.exit(7), 300);
  },
  exitAtOnce: () => {
    for (let count = 0; count < 100; ++count) idle.resolve(`http://host${count}.test/`);
    process.exit(7);
  },
  exitInListener: () => {
    kiv.on('log', () => process.exit(7));
    kiv.resolve(TARGET);
  },
  // The other events come all the same.
  throwInListener: () => {
    process.once('uncaughtException', ({ message }) => say(message));
    kiv.close();
    const logging = new Session({ userAgent: 'exit/1', logLevel: 'debug' });
    logging.once('log', () => {
      throw new Error('of the listener');
    });
    logging.resolve(TARGET).then(({ kind }) => say(kind));
  },
  throw: () => {
    kiv.resolve(TARGET);
    setTimeout(() => {
      throw new Error('uncaught');
    }, 300);
  },
};
ways[process.argv[2]]();
