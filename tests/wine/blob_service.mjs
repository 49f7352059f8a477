// The storage service's own rules for the three requests of an upload, without a network: what it refuses and how, and
// what it keeps. Sources: the REST reference pages of Put Blob, Append Block, shared-key and SAS authorization.
import { createHash } from 'node:crypto';
import { sasSignature, sharedKeyAuthorization } from '../../scripts/wine/sas.mjs';

const kMiB = 1024 * 1024;
const kVersions = ['2020-04-08', '2024-11-04'];  // the product's and the SDK's
const kLargestPut = 5000 * kMiB;
const kMostBlocks = 50000;
const kClockSkewMs = 15 * 60000;
const largestBlock = (version) => (version >= '2022-11-02' ? 100 : 4) * kMiB;
const refusal = (status, code, message = code) => ({ status, code, message });

/** The service's error body. */
export const errorBody = ({ code, message }) =>
  `\ufeff<?xml version="1.0" encoding="utf-8"?><Error><Code>${code}</Code><Message>${message}</Message></Error>`;

/** The blobs of the container "logs". Requests: {method, path, query (URLSearchParams), headers (lower-case names)}. */
export class BlobService {
  /** @param {{name, key}} [account] when given, every request must be signed with its key or with a SAS of it. */
  constructor(account) {
    this.account = account;
    /** path -> {type, size, blocks, sha256} of what was stored. */
    this.blobs = new Map();
  }

  /**
   * Judges a request by everything but its body.
   * @returns {{operation: 'put' | 'create' | 'append'} | {status, code, message}}
   */
  judge(request, now = Date.now()) {
    const { method, path, query, headers } = request;
    if (method !== 'PUT') return refusal(405, 'UnsupportedHttpVerb');
    const [, container, name] = /^\/([^/]+)\/(.+)$/.exec(path) ?? [];
    if (!name) return refusal(400, 'InvalidUri');
    const operation = query.get('comp') === 'appendblock' ? 'append'
      : headers['x-ms-blob-type'] === 'AppendBlob' ? 'create' : 'put';
    const broken = this.#judgeHeaders(headers, now) ?? this.#judgeSignature(request, operation, now) ??
      (query.has('comp') && operation !== 'append' ? refusal(400, 'InvalidQueryParameterValue', 'comp') : null) ??
      (container === 'logs' ? null : refusal(404, 'ContainerNotFound')) ??
      this.#judgeOperation(operation, path, headers);
    return broken ?? { operation };
  }

  #judgeHeaders(headers, now) {
    const version = headers['x-ms-version'];
    if (!version) return refusal(400, 'MissingRequiredHeader', 'x-ms-version');
    if (!kVersions.includes(version)) return refusal(400, 'InvalidHeaderValue', 'x-ms-version');
    const date = headers['x-ms-date'] ?? headers.date;
    if (!date) return refusal(403, 'AuthenticationFailed', 'no x-ms-date');
    if (new Date(date).toUTCString() !== date) return refusal(400, 'InvalidHeaderValue', 'x-ms-date');
    if (Math.abs(Date.parse(date) - now) > kClockSkewMs) return refusal(403, 'AuthenticationFailed', 'x-ms-date');
    const length = headers['content-length'];
    if (length === undefined) return refusal(411, 'MissingContentLengthHeader');
    return /^\d+$/.test(length) ? null : refusal(400, 'InvalidHeaderValue', 'Content-Length');
  }

  #judgeSignature({ method, path, query, headers }, operation, now) {
    if (!this.account) return null;
    if (headers.authorization) {
      const right = sharedKeyAuthorization(this.account, method, path, query, headers);
      return headers.authorization === right ? null : refusal(403, 'AuthenticationFailed', 'shared key');
    }
    const fields = Object.fromEntries(query);
    if (!fields.sig) return refusal(403, 'AuthenticationFailed', 'not signed');
    const scope = fields.sr === 'c' ? `/${path.split('/')[1]}` : path;
    if (fields.sig !== sasSignature(this.account, scope, fields) || !(Date.parse(fields.se) > now)) {
      return refusal(403, 'AuthenticationFailed', 'shared-access signature');
    }
    const allowing = operation === 'append' ? 'aw' : this.blobs.has(path) ? 'w' : 'cw';
    return [...allowing].some((permission) => fields.sp.includes(permission)) ? null
      : refusal(403, 'AuthorizationPermissionMismatch');
  }

  #judgeOperation(operation, path, headers) {
    const length = Number(headers['content-length']);
    const type = headers['x-ms-blob-type'];
    if (operation === 'append') {
      const blob = this.blobs.get(path);
      if (!blob) return refusal(404, 'BlobNotFound');
      if (blob.type !== 'AppendBlob') return refusal(409, 'InvalidBlobType');
      if (length === 0) return refusal(400, 'InvalidHeaderValue', 'Content-Length');
      if (length > largestBlock(headers['x-ms-version'])) return refusal(413, 'RequestBodyTooLarge');
      return blob.blocks >= kMostBlocks ? refusal(409, 'BlockCountExceedsLimit') : null;
    }
    if (!type) return refusal(400, 'MissingRequiredHeader', 'x-ms-blob-type');
    if (operation === 'create') return length === 0 ? null : refusal(400, 'InvalidHeaderValue', 'Content-Length');
    if (type !== 'BlockBlob') return refusal(400, 'InvalidHeaderValue', 'x-ms-blob-type');
    return length > kLargestPut ? refusal(413, 'RequestBodyTooLarge') : null;
  }

  /** The digest that the request's body goes into: that of the blob as it will be. */
  digestFor(operation, path) {
    return operation === 'append' ? this.blobs.get(path).hash.copy() : createHash('sha256');
  }

  /** Keeps what a judged request brought; hash is digestFor's, with the body in it. */
  store(operation, path, size, hash) {
    const before = operation === 'append' ? this.blobs.get(path) : { size: 0, blocks: 0 };
    this.blobs.set(path, { type: operation === 'put' ? 'BlockBlob' : 'AppendBlob', size: before.size + size, hash,
      blocks: before.blocks + (operation === 'append' ? 1 : 0), sha256: hash.copy().digest('hex') });
  }
}
