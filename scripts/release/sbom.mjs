// sbom.mjs FOLDER VERSION GCC MINGW
//
// Prints the bill of materials of a release, SPDX 2.3 as JSON: what is linked into mdDCT.exe, and each file of the
// archive. FOLDER holds the files of the archive. VERSION is the product's version, GCC and MINGW those of the packages
// of GCC's runtime and of mingw-w64. The environment variable SOURCE_DATE_EPOCH gives the date.
import { createHash } from 'node:crypto';
import { readFileSync, readdirSync } from 'node:fs';
import { join, relative } from 'node:path';
import { pathToFileURL } from 'node:url';

const digest = (name, data) => createHash(name).update(data).digest('hex');

const filesBelow = (folder) => readdirSync(folder, { withFileTypes: true }).flatMap(
  (entry) => (entry.isDirectory() ? filesBelow(join(folder, entry.name)) : [join(folder, entry.name)]));

const part = (id, name, version, supplier, licence) => ({
  SPDXID: `SPDXRef-${id}`, name, versionInfo: version, supplier, downloadLocation: 'NOASSERTION', filesAnalyzed: false,
  licenseConcluded: licence, licenseDeclared: licence, copyrightText: 'NOASSERTION',
});

// What is linked statically. Everything else that the executable needs is part of Windows.
const kGccLicence = 'GPL-3.0-or-later WITH GCC-exception-3.1';
const runtimes = (gcc, mingw) => [
  part('libstdcxx', 'libstdc++', gcc, 'Organization: Free Software Foundation', kGccLicence),
  part('libgcc', 'libgcc', gcc, 'Organization: Free Software Foundation', kGccLicence),
  part('mingw-w64-crt', 'mingw-w64 C runtime start-up', mingw, 'Organization: mingw-w64', 'ZPL-2.1'),
  part('winpthreads', 'winpthreads', mingw, 'Organization: mingw-w64', 'MIT AND BSD-3-Clause'),
];

/** Returns the document. files: {name, data} of the archive, with "/" in the names. seconds: since 1970. */
export function document({ version, gcc, mingw, files, seconds }) {
  const entries = files.map(({ name, data }, n) => ({
    SPDXID: `SPDXRef-File-${n + 1}`, fileName: `./${name}`, licenseConcluded: 'NOASSERTION',
    licenseInfoInFiles: ['NOASSERTION'], copyrightText: 'NOASSERTION',
    checksums: ['SHA1', 'SHA256'].map((algorithm) => ({ algorithm, checksumValue: digest(algorithm, data) })),
  }));
  const sums = entries.map(({ checksums }) => checksums[0].checksumValue).sort();
  const program = { ...part('mdDCT', 'mdDCT', version, 'Organization: Calvera', 'NOASSERTION'), filesAnalyzed: true,
    packageVerificationCode: { packageVerificationCodeValue: digest('sha1', sums.join('')) } };
  const parts = runtimes(gcc, mingw);
  const contents = digest('sha256', entries.map(({ checksums }) => checksums[1].checksumValue).join('\n'));
  const relation = (from, type, to) => (
    { spdxElementId: from, relationshipType: type, relatedSpdxElement: to });
  return {
    spdxVersion: 'SPDX-2.3', dataLicense: 'CC0-1.0', SPDXID: 'SPDXRef-DOCUMENT', name: `mdDCT-${version}`,
    documentNamespace: `urn:sha256:${contents}`,
    creationInfo: {
      created: new Date(seconds * 1000).toISOString().replace(/\.\d+Z$/, 'Z'), creators: ['Organization: Calvera'] },
    packages: [program, ...parts],
    files: entries,
    relationships: [
      relation('SPDXRef-DOCUMENT', 'DESCRIBES', program.SPDXID),
      ...parts.map(({ SPDXID }) => relation(program.SPDXID, 'STATIC_LINK', SPDXID)),
      ...entries.map(({ SPDXID }) => relation(program.SPDXID, 'CONTAINS', SPDXID)),
    ],
  };
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  const [folder, version, gcc, mingw] = process.argv.slice(2);
  const files = filesBelow(folder).filter((file) => !file.endsWith('sbom.spdx.json')).sort()
    .map((file) => ({ name: relative(folder, file), data: readFileSync(file) }));
  const seconds = Number(process.env.SOURCE_DATE_EPOCH);
  console.log(JSON.stringify(document({ version, gcc, mingw, files, seconds }), null, 2));
}
