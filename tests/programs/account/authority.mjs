// An authority of the tests' own, and certificates of the test account service, all made by openssl in a
// directory that the caller gives and removes.
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";

const configuration = `
[ca]
default_ca = authority
[authority]
database = index.txt
new_certs_dir = .
rand_serial = yes
default_md = sha256
policy = any
copy_extensions = copy
unique_subject = no
[any]
commonName = supplied
`;

// The certificates by name, each as { key, cert }: `good`, `wrongName`, `expired`, `selfSigned`. `authorityFile` is
// the authority's own certificate, PEM; `authorityDer` the same as DER.
/** @param {string} directory */
export function makeAuthority(directory) {
  /** @param {string[]} args */
  const openssl = (...args) =>
    execFileSync("openssl", args, { cwd: directory, stdio: ["ignore", "pipe", "pipe"] });
  /** @param {string} name */
  const at = (name) => path.join(directory, name);
  fs.writeFileSync(at("authority.conf"), configuration);
  fs.writeFileSync(at("index.txt"), "");
  const newKey = ["-newkey", "rsa:2048", "-nodes"];
  openssl(
    "req",
    "-x509",
    ...newKey,
    "-days",
    "2",
    "-subj",
    "/CN=Velmora test authority",
    "-keyout",
    "authority.key",
    "-out",
    "authority.pem",
    "-addext",
    "basicConstraints=critical,CA:TRUE",
    "-addext",
    "keyUsage=critical,keyCertSign",
  );
  openssl("x509", "-in", "authority.pem", "-outform", "DER", "-out", "authority.der");

  /** @param {string} name */
  const certificate = (name) => ({
    key: fs.readFileSync(at(`${name}.key`), "utf8"),
    cert: fs.readFileSync(at(`${name}.pem`), "utf8"),
  });
  const here = "subjectAltName=DNS:localhost,IP:127.0.0.1";
  const elsewhere = "subjectAltName=DNS:elsewhere.invalid";
  /** @param {string} name @param {string} names @param {string[]} dates */
  const signed = (name, names, dates) => {
    const commonName = names === here ? "localhost" : "elsewhere.invalid";
    openssl(
      "req",
      ...newKey,
      "-subj",
      `/CN=${commonName}`,
      "-addext",
      names,
      "-keyout",
      `${name}.key`,
      "-out",
      `${name}.csr`,
    );
    openssl(
      "ca",
      "-batch",
      "-config",
      "authority.conf",
      "-cert",
      "authority.pem",
      "-keyfile",
      "authority.key",
      "-notext",
      "-in",
      `${name}.csr`,
      "-out",
      `${name}.pem`,
      ...dates,
    );
    return certificate(name);
  };
  openssl(
    "req",
    "-x509",
    ...newKey,
    "-days",
    "2",
    "-subj",
    "/CN=localhost",
    "-addext",
    here,
    "-keyout",
    "self_signed.key",
    "-out",
    "self_signed.pem",
  );
  return {
    authorityFile: at("authority.pem"),
    authorityDer: at("authority.der"),
    good: signed("good", here, ["-days", "2"]),
    wrongName: signed("wrong_name", elsewhere, ["-days", "2"]),
    expired: signed("expired", here, ["-startdate", "20200101000000Z", "-enddate", "20210101000000Z"]),
    selfSigned: certificate("self_signed"),
  };
}
