// An authority of the tests' own, and certificates of the test account service, all made by openssl in a
// directory that the caller gives and removes.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

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

// The certificates by name, each as { key, cert }: `good`, `wrong_name`, `expired`, `self_signed`. `authority_file` is
// the authority's own certificate, PEM; `authority_der` the same as DER.
export function make_authority(directory) {
  const openssl = (...args) => execFileSync('openssl', args, { cwd: directory, stdio: ['ignore', 'pipe', 'pipe'] });
  const at = (name) => path.join(directory, name);
  fs.writeFileSync(at('authority.conf'), configuration);
  fs.writeFileSync(at('index.txt'), '');
  const new_key = ['-newkey', 'rsa:2048', '-nodes'];
  openssl('req', '-x509', ...new_key, '-days', '2', '-subj', '/CN=Velmora test authority', '-keyout', 'authority.key',
    '-out', 'authority.pem', '-addext', 'basicConstraints=critical,CA:TRUE', '-addext', 'keyUsage=critical,keyCertSign');
  openssl('x509', '-in', 'authority.pem', '-outform', 'DER', '-out', 'authority.der');

  const certificate = (name) => ({
    key: fs.readFileSync(at(`${name}.key`), 'utf8'),
    cert: fs.readFileSync(at(`${name}.pem`), 'utf8'),
  });
  const here = 'subjectAltName=DNS:localhost,IP:127.0.0.1';
  const elsewhere = 'subjectAltName=DNS:elsewhere.invalid';
  const signed = (name, names, dates) => {
    const common_name = names === here ? 'localhost' : 'elsewhere.invalid';
    openssl('req', ...new_key, '-subj', `/CN=${common_name}`, '-addext', names, '-keyout', `${name}.key`, '-out', `${name}.csr`);
    openssl('ca', '-batch', '-config', 'authority.conf', '-cert', 'authority.pem', '-keyfile', 'authority.key', '-notext',
      '-in', `${name}.csr`, '-out', `${name}.pem`, ...dates);
    return certificate(name);
  };
  openssl('req', '-x509', ...new_key, '-days', '2', '-subj', '/CN=localhost', '-addext', here, '-keyout',
    'self_signed.key', '-out', 'self_signed.pem');
  return {
    authority_file: at('authority.pem'),
    authority_der: at('authority.der'),
    good: signed('good', here, ['-days', '2']),
    wrong_name: signed('wrong_name', elsewhere, ['-days', '2']),
    expired: signed('expired', here, ['-startdate', '20200101000000Z', '-enddate', '20210101000000Z']),
    self_signed: certificate('self_signed'),
  };
}
