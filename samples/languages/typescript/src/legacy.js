// import old from './old';
const math = require('./math');
const fs = require('fs');
const text = "import y from './nope'";
module.exports = { math, fs, text };
