// A server with metadata that a test gives as an object, spoken to by the real tool.
import http from 'node:http';

// U+0000 and other characters that XML does not allow are sent as references, which are not allowed
// either; use them in tests of rejected replies only.
function escapeXML(text) {
  return String(text).replace(/[&<>]/g, each => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;' })[each]);
}

function reply(rows) {
  const body = rows.map(row => '<row>' + Object.entries(row)
    .map(([column, value]) => `<${column}>${escapeXML(value)}</${column}>`).join('') + '</row>').join('');
  return '<?xml version="1.0"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/"><SOAP-ENV:Body>' +
    '<DiscoverResponse xmlns="urn:schemas-microsoft-com:xml-analysis"><return>' +
    `<root xmlns="urn:schemas-microsoft-com:xml-analysis:rowset">${body}</root>` +
    '</return></DiscoverResponse></SOAP-ENV:Body></SOAP-ENV:Envelope>';
}

function value(body, element) {
  const found = new RegExp(`<${element}>([^]*?)</${element}>`).exec(body);
  return found && found[1].replace(/&(lt|gt|quot|apos|amp|#13);/g, (_, name) =>
    ({ lt: '<', gt: '>', quot: '"', apos: "'", amp: '&', '#13': '\r' })[name]);
}

const hierarchyRow = cube => hierarchy => ({
  CATALOG_NAME: 'C', CUBE_NAME: cube.name, DIMENSION_UNIQUE_NAME: `[${hierarchy.dimension}]`,
  HIERARCHY_NAME: hierarchy.name, HIERARCHY_UNIQUE_NAME: `[${hierarchy.name}]`, HIERARCHY_CAPTION: hierarchy.caption ?? hierarchy.name,
  DIMENSION_TYPE: 3, DEFAULT_MEMBER: 'all', ALL_MEMBER: 'all', STRUCTURE: hierarchy.structure ?? 0, IS_VIRTUAL: false,
  DIMENSION_UNIQUE_SETTINGS: 1, HIERARCHY_ORIGIN: 1,
});

const levelRow = hierarchy => (level, i) => ({
  DIMENSION_UNIQUE_NAME: `[${hierarchy.dimension}]`, HIERARCHY_UNIQUE_NAME: `[${hierarchy.name}]`, LEVEL_NAME: level.name,
  LEVEL_UNIQUE_NAME: `[${hierarchy.name}].[${i}]`, LEVEL_CAPTION: level.caption ?? level.name, LEVEL_NUMBER: i, LEVEL_TYPE: 0,
});

const propertyRow = property => ({
  PROPERTY_NAME: property.name, PROPERTY_CAPTION: property.caption ?? property.name, PROPERTY_TYPE: 1, DATA_TYPE: 130,
});

const measureRow = measure => ({
  MEASURE_NAME: measure.name, MEASURE_UNIQUE_NAME: `[Measures].[${measure.name}]`, MEASURE_CAPTION: measure.caption ?? measure.name,
  MEASURE_AGGREGATOR: measure.aggregator ?? 1, DATA_TYPE: 5, NUMERIC_PRECISION: 15, NUMERIC_SCALE: 2,
});

/** Serves {cubes: [{name, hierarchies: [{dimension, name, caption, levels: [{name, properties}]}], measures}]}. */
export async function serve({ cubes }) {
  const byName = new Map(cubes.map(cube => [cube.name, cube]));
  const rowsets = {
    DISCOVER_DATASOURCES: () => [{ DataSourceName: 'S', DataSourceInfo: 'S', ProviderName: 'P' }],
    DBSCHEMA_CATALOGS: () => [{ CATALOG_NAME: 'C' }],
    MDSCHEMA_CUBES: () => cubes.map(cube => ({ CATALOG_NAME: 'C', CUBE_NAME: cube.name, CUBE_TYPE: 'CUBE' })),
    MDSCHEMA_HIERARCHIES: (cube) => (cube.hierarchies ?? []).map(hierarchyRow(cube)),
    MDSCHEMA_LEVELS: (cube, hierarchy) => hierarchy.levels.map(levelRow(hierarchy)),
    MDSCHEMA_PROPERTIES: (cube, hierarchy, level) => (level.properties ?? []).map(propertyRow),
    MDSCHEMA_MEASURES: (cube) => (cube.measures ?? []).map(measureRow),
  };
  const server = http.createServer((request, response) => {
    const pieces = [];
    request.on('data', piece => pieces.push(piece));
    request.on('end', () => {
      const body = Buffer.concat(pieces).toString('utf8');
      const cube = byName.get(value(body, 'CUBE_NAME'));
      const name = value(body, 'HIERARCHY_UNIQUE_NAME');
      const hierarchy = cube && name && cube.hierarchies.find(each => `[${each.name}]` === name);
      const levelName = value(body, 'LEVEL_UNIQUE_NAME');
      const level = hierarchy && levelName && hierarchy.levels[Number(/\[(\d+)\]$/.exec(levelName)[1])];
      const rowset = rowsets[value(body, 'RequestType')];
      response.setHeader('Content-Type', 'text/xml');
      response.end(reply(rowset ? rowset(cube, hierarchy, level) : []));
    });
  });
  await new Promise(resolve => server.listen(0, '127.0.0.1', resolve));
  return {
    url: `http://127.0.0.1:${server.address().port}/`,
    close: () => new Promise(resolve => { server.closeAllConnections(); server.close(resolve); }),
  };
}
