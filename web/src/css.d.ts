// The bundler gives a style sheet as its text.
declare module "*.css" {
  const text: string;
  export default text;
}
