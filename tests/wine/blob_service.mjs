// The rules of the storage service for the three requests of an upload, without a network: which requests it refuses,
// with which error, and what it stores. Sources: the REST reference pages of Put Blob, Append Block, shared-key and SAS
// authorization.
import { createHash } from 'node:crypto';
import { sasSignature, sharedKeyAuthorization } from '../../wine/storage_signatures.mjs';

const kMiB = 1024 * 1024;
const kVersions = ['2020-04-08', '2024-11-04'];  // the product's and the SDK's
const kMaxPut = 5000 * kMiB;
const kMaxBlocks = 50000;
const kClockSkewMs = 15 * 60000;
const kMaxBlock = 4 * kMiB;  // in the product's version

/** Returns the body of the service's error answer. */
export const errorBody = ({ code }) =>
  `\ufeff<?xml version="1.0" encoding="utf-8"?><Error><Code>${code}</Code><Message>${code}</Message></Error>`;

/** The blobs of the container "logs". Requests: {method, path, query (URLSearchParams), headers (lower-case names)}. */
export class BlobService {
  /** @param {{name, key}} [account] when given, every request must be signed with its key or with a SAS of it. */
  constructor(account) {
    this.account = account;
    /** path -> {type, size, blocks, sha256} of what was stored. */
    this.blobs = new Map();
  }

  /**
   * Checks a request by everything except its body.
   * @returns {{operation: 'put' | 'create' | 'append'} | {status, code}}
   */
  check(request, now = Date.now()) {
    const { method, path, query, headers } = request;
    const { 'x-ms-version': version, 'x-ms-blob-type': type, 'content-length': length } = headers;
    const [, container, name] = /^\/([^/]+)\/(.+)$/.exec(path) ?? [];
    const operation = query.get('comp') === 'appendblock' ? 'append' : type === 'AppendBlob' ? 'create' : 'put';
    const [date, size, blob] = [headers['x-ms-date'] ?? headers.date, Number(length), this.blobs.get(path)];
    // The service checks in this order and answers with the first rule that does not hold.
    const rules = [
      [method === 'PUT', 405, 'UnsupportedHttpVerb'],
      [name, 400, 'InvalidUri'],
      [version, 400, 'MissingRequiredHeader'],
      [kVersions.includes(version), 400, 'InvalidHeaderValue'],
      [date, 403, 'AuthenticationFailed'],
      [new Date(date).toUTCString() === date, 400, 'InvalidHeaderValue'],
      [Math.abs(Date.parse(date) - now) <= kClockSkewMs, 403, 'AuthenticationFailed'],
      [length, 411, 'MissingContentLengthHeader'],
      [/^\d+$/.test(length), 400, 'InvalidHeaderValue'],
      ...(this.account ? this.#rulesOfSignature(request, operation, now) : []),
      [operation === 'append' || !query.has('comp'), 400, 'InvalidQueryParameterValue'],
      [container === 'logs', 404, 'ContainerNotFound'],
      ...{
        append: [
          [blob, 404, 'BlobNotFound'],
          [blob?.type === 'AppendBlob', 409, 'InvalidBlobType'],
          [size > 0, 400, 'InvalidHeaderValue'],
          [size <= kMaxBlock, 413, 'RequestBodyTooLarge'],
          [blob?.blocks < kMaxBlocks, 409, 'BlockCountExceedsLimit'],
        ],
        create: [[size === 0, 400, 'InvalidHeaderValue']],
        put: [
          [type, 400, 'MissingRequiredHeader'],
          [type === 'BlockBlob', 400, 'InvalidHeaderValue'],
          [size <= kMaxPut, 413, 'RequestBodyTooLarge'],
        ],
      }[operation],
    ];
    const [, status, code] = rules.find(([holds]) => !holds) ?? [];
    return status ? { status, code } : { operation };
  }

  #rulesOfSignature({ method, path, query, headers }, operation, now) {
    if (headers.authorization) {
      const right = sharedKeyAuthorization(this.account, method, path, query, headers);
      return [[headers.authorization === right, 403, 'AuthenticationFailed']];
    }
    const { sig, ...fields } = Object.fromEntries(query);
    const allowing = operation === 'append' ? 'aw' : this.blobs.has(path) ? 'w' : 'cw';
    return [
      [sig === sasSignature(this.account, path, fields) && Date.parse(fields.se) > now, 403, 'AuthenticationFailed'],
      [[...allowing].some((permission) => fields.sp?.includes(permission)), 403, 'AuthorizationPermissionMismatch'],
    ];
  }

  /** Returns the digest to which the request's body is added. It ends as the digest of the whole blob. */
  digestFor(operation, path) {
    return operation === 'append' ? this.blobs.get(path).hash.copy() : createHash('sha256');
  }

  /** Stores the result of an accepted request. hash comes from digestFor(), and the body has been added to it. */
  store(operation, path, size, hash) {
    const before = operation === 'append' ? this.blobs.get(path) : { size: 0, blocks: 0 };
    this.blobs.set(path, { type: operation === 'put' ? 'BlockBlob' : 'AppendBlob', size: before.size + size, hash,
      blocks: before.blocks + (operation === 'append' ? 1 : 0), sha256: hash.copy().digest('hex') });
  }
}
