// sdk_upload URL FILE AUTHORITY: the storage SDK's own upload of a file, as one Put Blob.
import { readFileSync, statSync } from 'node:fs';
import { developmentAccount } from '../../wine/storage_signatures.mjs';
import { openStorage } from '../../wine/storage_client.mjs';

const [url, file, authority] = process.argv.slice(2);
const { origin, pathname } = new URL(url);
const [, container, name] = pathname.split('/');
const storage = openStorage(origin, developmentAccount, readFileSync(authority));
const blob = storage.service.getContainerClient(container).getBlockBlobClient(name);
await blob.uploadFile(file, { maxSingleShotSize: statSync(file).size });
storage.close();
