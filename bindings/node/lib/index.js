'use strict';

const { Session } = require('./session');
const { KivError } = require('./errors');
const { dispatcher } = require('./dispatcher');
const { agent } = require('./agent');

module.exports = { Session, KivError, dispatcher, agent };
