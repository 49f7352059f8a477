// The version, the change log and the bill of materials.
import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { document } from '../../scripts/release/sbom.mjs';
import { read, version } from './source.mjs';

describe('the release', () => {
  it('has its version in one file, and the change log has a section for it', () => {
    const numbers = /^#define MDDCT_VERSION_NUMBERS ([\d, ]+)$/m.exec(read('packaging/version.h'))[1];
    assert.equal(numbers.replaceAll(', ', '.'), version);
    assert.ok(read('CHANGELOG.md').includes(`## ${version.replace(/\.0$/, '')}`));
  });

  it('has a bill of materials whose references resolve', () => {
    const data = Buffer.from('a');
    const bill = document({ version, gcc: '12', mingw: '10', files: [{ name: 'mdDCT.exe', data }], seconds: 0 });
    const ids = [bill, ...bill.packages, ...bill.files].map(({ SPDXID }) => SPDXID);
    assert.equal(new Set(ids).size, ids.length);
    const named = bill.relationships.flatMap(({ spdxElementId, relatedSpdxElement: other }) => [spdxElementId, other]);
    assert.deepEqual(named.filter((id) => !ids.includes(id)), []);
    assert.deepEqual([bill.files[0].checksums[1].checksumValue, bill.creationInfo.created],
      ['ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb', '1970-01-01T00:00:00Z']);
  });
});
