export function log(text: string): void {
  console.log(`import { no } from './template';`);
}
