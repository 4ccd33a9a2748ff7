// Names the proxy that a session decides for.
'use strict';

const { Session } = require('kiv');

const kiv = new Session({ userAgent: 'consumer/1', preferred: 'proxy.test:8080', test: 'none' });
kiv.resolve('http://host.test/').then(({ url }) => {
  console.log(url);
  kiv.close();
});
